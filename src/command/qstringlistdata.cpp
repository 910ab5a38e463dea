#include "command/qstringlistdata.h"

#include "command/ownedlist.h"

#include <QSet>

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
    // A set of the strings held so far keeps each look-up constant: a searched list would make
    // decoding quadratic in the number of strings a peer sends.
    QSet<QString> seen(m_qstringList.cbegin(), m_qstringList.cend());
    OwnedList::ReadNested(in, [this, &seen](QDataStream& inner) {
        QString text;
        inner >> text;
        if (!seen.contains(text)) {
            seen.insert(text);
            m_qstringList.append(text);
        }
    });
}

QList<QString> QstringListData::getQstringList() const { return m_qstringList; }
QList<QString>& QstringListData::getObjectQstringList() { return m_qstringList; }
void QstringListData::setQstringList(const QList<QString>& qstringList) { m_qstringList = qstringList; }
