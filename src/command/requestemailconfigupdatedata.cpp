#include "command/requestemailconfigupdatedata.h"

#include <QDataStream>

RequestEmailConfigUpdateData::RequestEmailConfigUpdateData() = default;

RequestEmailConfigUpdateData::RequestEmailConfigUpdateData(const RequestEmailConfigUpdateData& other)
    : CommandObj(other)
{
    formother(other);
}

RequestEmailConfigUpdateData& RequestEmailConfigUpdateData::operator=(const RequestEmailConfigUpdateData& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

RequestEmailConfigUpdateData::~RequestEmailConfigUpdateData() = default;

void RequestEmailConfigUpdateData::formother(const RequestEmailConfigUpdateData& other)
{
    m_emailConfigAttribute = other.m_emailConfigAttribute;
}

void RequestEmailConfigUpdateData::Write(QDataStream& out)
{
    m_emailConfigAttribute.Write(out);
}

void RequestEmailConfigUpdateData::Read(QDataStream& in)
{
    m_emailConfigAttribute.Read(in);
}

EmailConfigAttribute RequestEmailConfigUpdateData::getEmailConfigAttribute() const { return m_emailConfigAttribute; }
EmailConfigAttribute& RequestEmailConfigUpdateData::getObjectEmailConfigAttribute() { return m_emailConfigAttribute; }
void RequestEmailConfigUpdateData::setEmailConfigAttribute(const EmailConfigAttribute& emailConfigAttribute) { m_emailConfigAttribute = emailConfigAttribute; }
