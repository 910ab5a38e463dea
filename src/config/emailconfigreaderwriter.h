#ifndef BACKUPFRAME_EMAILCONFIGREADERWRITER_H
#define BACKUPFRAME_EMAILCONFIGREADERWRITER_H

#include "backupframe_global.h"
#include "config/emailconfigattribute.h"

#include <QString>

// The e-mail settings bound to their INI file, which it loads and saves; the
// password is stored scrambled (CommonTools::EncryptPassword). Nothing is logged.
class BACKUPFRAME_EXPORT EmailConfigReaderWriter : public EmailConfigAttribute
{
public:
    EmailConfigReaderWriter();
    EmailConfigReaderWriter(const EmailConfigReaderWriter& other);
    EmailConfigReaderWriter& operator=(const EmailConfigReaderWriter& other);
    ~EmailConfigReaderWriter() override;

    // False for an empty path; the file need not exist yet.
    bool Init(const QString& path);
    // A missing file leaves the fields as they are; absent keys read as 0 or "".
    // Numbers are read as 32-bit values: a stored value above 4294967295 keeps its low 32 bits.
    void ReadConfig();
    // Writes all twelve keys; an unwritable file is silently not written.
    void WriteConfig();
    // Takes the twelve fields of the argument; the path stays.
    void SetConfigAttribute(const EmailConfigAttribute& attribute);
    void UnInit();

private:
    QString m_configPath;
};

#endif
