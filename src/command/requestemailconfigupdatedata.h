#ifndef BACKUPFRAME_REQUESTEMAILCONFIGUPDATEDATA_H
#define BACKUPFRAME_REQUESTEMAILCONFIGUPDATEDATA_H

#include "backupframe_global.h"
#include "command/commandobj.h"
#include "config/emailconfigattribute.h"

// Payload of "EmailConfigUpdate": the whole e-mail settings record, by value.
class BACKUPFRAME_EXPORT RequestEmailConfigUpdateData : public CommandObj
{
public:
    RequestEmailConfigUpdateData();
    RequestEmailConfigUpdateData(const RequestEmailConfigUpdateData& other);
    RequestEmailConfigUpdateData& operator=(const RequestEmailConfigUpdateData& other);
    ~RequestEmailConfigUpdateData() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    EmailConfigAttribute getEmailConfigAttribute() const;
    EmailConfigAttribute& getObjectEmailConfigAttribute();
    void setEmailConfigAttribute(const EmailConfigAttribute& emailConfigAttribute);

private:
    void formother(const RequestEmailConfigUpdateData& other);

    EmailConfigAttribute m_emailConfigAttribute;
};

#endif
