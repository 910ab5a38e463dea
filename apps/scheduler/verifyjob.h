#ifndef BACKUPFRAME_SCHEDULER_VERIFYJOB_H
#define BACKUPFRAME_SCHEDULER_VERIFYJOB_H

#include "copyjob.h"

// What a verify is told by its parameter block: the backup (a copy's folder or an archive), and
// the folder it was made of with the patterns the backup left out.
struct VerifySettings {
    QString backup;
    CopySettings source;   // source.destination is the backup

    // One line for the operation list: what the parameter block holds.
    static QString ParameterHelp();
    // False with a reason that says what is expected when the block is not a verify's parameter.
    static bool Parse(const QByteArray& block, VerifySettings& settings, QString& reason);
};

// Reads a whole backup and reports what is missing, different or damaged in it: a folder is a
// copy's mirror, compared with its source; a file is an archive, each entry checked by libzip
// and, when a source is given, compared with it. Work runs on the job's thread.
class VerifyJob : public RunJob
{
public:
    using RunJob::RunJob;

protected:
    quint64 Work(QString& reason, QString& solution) override;

private:
    bool Check();
    bool CheckSource(bool needed);

    VerifySettings m_settings;
};

#endif
