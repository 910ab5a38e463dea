#include "command/qstringlistdata.h"

#include "command/ownedlist.h"

QstringListData::QstringListData() = default;

QstringListData::QstringListData(const QstringListData& other)
    : CommandObj(other)
{
    formother(other);
}

QstringListData& QstringListData::operator=(const QstringListData& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

QstringListData::~QstringListData() = default;

void QstringListData::formother(const QstringListData& other)
{
    m_qstringList = other.m_qstringList;
}

void QstringListData::Write(QDataStream& out)
{
    OwnedList::WriteNested(out, m_qstringList, [](QDataStream& inner, const QString& text) { inner << text; });
}

void QstringListData::Read(QDataStream& in)
{
    OwnedList::ReadNested(in, [this](QDataStream& inner) {
        QString text;
        inner >> text;
        if (!m_qstringList.contains(text))
            m_qstringList.append(text);
    });
}

QList<QString> QstringListData::getQstringList() const { return m_qstringList; }
QList<QString>& QstringListData::getObjectQstringList() { return m_qstringList; }
void QstringListData::setQstringList(const QList<QString>& qstringList) { m_qstringList = qstringList; }
