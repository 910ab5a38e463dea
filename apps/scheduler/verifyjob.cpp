#include "verifyjob.h"

#include "backupverifier.h"
#include "operationparameters.h"

#include <QDir>
#include <QFileInfo>

namespace {

const QString kExpected = QStringLiteral("verify wants a backup=PATH line and, for a copy's folder, source=FOLDER "
                                         "(exclude=PATTERNS is optional).");

} // namespace

QString VerifySettings::ParameterHelp()
{
    return QStringLiteral("backup=PATH (absolute: a copy's destination folder or an archive written by zip), "
                          "source=FOLDER (the folder backed up; needed for a copy's folder, optional for an "
                          "archive) and optional exclude=PATTERNS (as for copy); reads the whole backup and reports "
                          "what is missing, different or damaged; can be cancelled");
}

bool VerifySettings::Parse(const QByteArray& block, VerifySettings& settings, QString& reason)
{
    OperationParameters parameters;
    const QStringList keys{QStringLiteral("backup"), QStringLiteral("source"), QStringLiteral("exclude")};
    if (!parameters.Parse(block, keys, reason)) {
        reason += QLatin1Char(' ') + kExpected;
        return false;
    }
    settings.backup = parameters.Value(keys[0]);
    settings.source.source = parameters.Value(keys[1]);
    if (!OperationParameters::AbsolutePaths({settings.backup}, true, kExpected, reason)
        || !OperationParameters::AbsolutePaths({settings.source.source}, false, kExpected, reason))
        return false;
    settings.backup = QDir::cleanPath(settings.backup);
    settings.source.destination = settings.backup;
    if (!settings.source.source.isEmpty())
        settings.source.source = QDir::cleanPath(settings.source.source);
    return CopySettings::ParseExcludes(parameters.Value(keys[2]), kExpected, settings.source.excludes, reason);
}

quint64 VerifyJob::Work(QString& reason, QString& solution)
{
    QString refused;
    const bool succeeded = (VerifySettings::Parse(m_task.getOperationParameter(), m_settings, refused)
                            || Fail(refused, QStringLiteral("Edit the parameter, then run it again.")))
                           && Check();
    if (succeeded)
        EndProgress();
    return Conclude(succeeded,
                    QStringLiteral("The verify was cancelled after %1 of %2 bytes.")
                        .arg(ProgressDone())
                        .arg(ProgressTotal()),
                    reason, solution);
}

bool VerifyJob::Check()
{
    const QFileInfo backup(m_settings.backup);
    QString reason, solution;
    bool passed = false;
    const CopySettings* source = m_settings.source.source.isEmpty() ? nullptr : &m_settings.source;
    if (backup.isDir())
        passed = CheckSource(true) && BackupVerifier(*this).CheckMirror(m_settings.source, reason, solution);
    else if (backup.isFile())
        passed = CheckSource(false) && BackupVerifier(*this).CheckArchive(m_settings.backup, source, reason, solution);
    else
        return Fail(QStringLiteral("The backup %1 does not exist.").arg(m_settings.backup),
                    QStringLiteral("Connect the drive that holds it, or correct backup= in the parameter, then run "
                                   "the verify again."));
    return passed || (reason.isEmpty() ? false : Fail(reason, solution));
}

// A copy's folder is compared with its source, so it needs one; an archive only when given.
bool VerifyJob::CheckSource(bool needed)
{
    const QString& source = m_settings.source.source;
    if (source.isEmpty() && needed)
        return Fail(QStringLiteral("%1 is a copy's folder: verifying it needs source=FOLDER, the folder it copies.")
                        .arg(m_settings.backup),
                    QStringLiteral("Add source= to the parameter, then run the verify again."));
    if (source.isEmpty() || QFileInfo(source).isDir())
        return true;
    return Fail(QStringLiteral("The source folder %1 does not exist.").arg(source),
                QStringLiteral("Connect the drive that holds it, or correct source= in the parameter, then run the "
                               "verify again."));
}
