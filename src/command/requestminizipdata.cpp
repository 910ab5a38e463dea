#include "command/requestminizipdata.h"

#include <QDataStream>

RequestMinizipData::RequestMinizipData() = default;

RequestMinizipData::RequestMinizipData(const RequestMinizipData& other)
    : CommandObj(other)
{
    formother(other);
}

RequestMinizipData& RequestMinizipData::operator=(const RequestMinizipData& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

RequestMinizipData::~RequestMinizipData() = default;

void RequestMinizipData::formother(const RequestMinizipData& other)
{
    m_savePath = other.m_savePath;
}

void RequestMinizipData::Write(QDataStream& out)
{
    out << m_savePath;
}

void RequestMinizipData::Read(QDataStream& in)
{
    in >> m_savePath;
}

QString RequestMinizipData::getSavePath() const { return m_savePath; }
void RequestMinizipData::setSavePath(const QString& savePath) { m_savePath = savePath; }
