#include "command/qstringlistdata.h"

#include <QByteArray>
#include <QDataStream>

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
    if (m_qstringList.isEmpty()) {
        out << QByteArray();
        return;
    }
    // The inner stream keeps QDataStream's default version on purpose.
    QByteArray list;
    QDataStream inner(&list, QIODevice::WriteOnly);
    for (const QString& text : qAsConst(m_qstringList))
        inner << text;
    out << list;
}

void QstringListData::Read(QDataStream& in)
{
    QByteArray list;
    in >> list;
    if (list.size() <= 0)
        return;
    QDataStream inner(&list, QIODevice::ReadOnly);
    while (!inner.atEnd()) {
        QString text;
        inner >> text;
        if (!m_qstringList.contains(text))
            m_qstringList.append(text);
    }
}

QList<QString> QstringListData::getQstringList() const { return m_qstringList; }
QList<QString>& QstringListData::getObjectQstringList() { return m_qstringList; }
void QstringListData::setQstringList(const QList<QString>& qstringList) { m_qstringList = qstringList; }
