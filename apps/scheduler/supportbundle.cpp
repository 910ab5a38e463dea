#include "supportbundle.h"

#include "schedulerservice.h"
#include "triggerschedule.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSysInfo>

#include <zip.h>

namespace {

QByteArray line(const QString& key, const QString& value)
{
    return (key + QStringLiteral(": ") + value + QLatin1Char('\n')).toUtf8();
}

QByteArray plansText(const SchedulerService& service)
{
    QByteArray text;
    for (const SchedulerPlan* plan : service.Store().Ordered()) {
        const TaskAttribute task = plan->getTaskAttribute();
        const TriggerAttribute trigger = plan->getTriggerAttribute();
        text += line(QStringLiteral("plan"), plan->getPlanName() + QLatin1Char(' ') + plan->getPlanUuid());
        text += line(QStringLiteral("  operation"), task.getOperationRegisterName());
        text += line(QStringLiteral("  parameter"), QString::fromUtf8(task.getOperationParameter()).replace('\n', ';'));
        text += line(QStringLiteral("  trigger"), QStringLiteral("type %1, start %2, end %3 (flag %4), interval %5 s, "
                                                                "duration %6 s, week days %7, months %8, month days %9, "
                                                                "last day %10")
                                                     .arg(trigger.getTriggerType())
                                                     .arg(trigger.getStartTime(), trigger.getEndTime())
                                                     .arg(trigger.getTriggerEndFlag())
                                                     .arg(trigger.getInterval())
                                                     .arg(trigger.getDuration())
                                                     .arg(trigger.getWeekDays(), trigger.getWhichMoths(),
                                                          trigger.getMonthDays())
                                                     .arg(trigger.getDayLastFlag()));
        text += line(QStringLiteral("  status"), plan->getSchemeAttribute().getStatus());
        text += line(QStringLiteral("  next start"), plan->getNextStartTime());
        text += line(QStringLiteral("  last run"), plan->getStartTime() + QStringLiteral(" to ") + plan->getEndTime());
        text += line(QStringLiteral("  error"), plan->getErrorMessage());
    }
    return text.isEmpty() ? QByteArray("no plans\n") : text;
}

QByteArray journalsText(SchedulerService& service)
{
    QList<JournalAttribute> journals;
    if (service.LoadJournals(QString(), journals) != SchedulerProtocol::NoError)
        return "the journals could not be read\n";
    QByteArray text("start\tend\tms\tresult\tplan\ttask\treason\tsolution\n");
    for (const JournalAttribute& journal : journals.mid(qMax(0, journals.size() - SupportBundle::kJournals))) {
        const QStringList fields{journal.getStartTime(), journal.getEndTime(),
                                 QString::number(journal.getTimeConsuming()), journal.getResult(),
                                 journal.getPlanName() + QLatin1Char(' ') + journal.getPlanUuid(), journal.getTaskName(),
                                 journal.getErrorReason(), journal.getSolution()};
        text += fields.join(QLatin1Char('\t')).replace('\n', ' ').toUtf8() + '\n';
    }
    return text;
}

QByteArray emailText(const EmailConfigAttribute& email)
{
    return line(QStringLiteral("enabled"), QString::number(email.getEnableEmailNotification()))
        + line(QStringLiteral("recipients"), email.getMailRecipients())
        + line(QStringLiteral("smtp server"), QStringLiteral("%1:%2").arg(email.getSmtpServerAddress()).arg(email.getSmtpServerPort()))
        + line(QStringLiteral("encryption"), QString::number(email.getSmtpServerEncryptionType()))
        + line(QStringLiteral("login"), QString::number(email.getStmpAuthentication()))
        + line(QStringLiteral("user"), email.getLoginUserName())
        + line(QStringLiteral("password"), email.getLoginPassword().isEmpty() ? QStringLiteral("none") : QStringLiteral("set (not included)"))
        + line(QStringLiteral("sender"), email.getMailSender())
        + line(QStringLiteral("subject"), email.getMailSubject())
        + line(QStringLiteral("on success"), QString::number(email.getOperationSuccessful()))
        + line(QStringLiteral("on failure"), QString::number(email.getOperationFailure()));
}

QString zipError(zip_t* archive)
{
    return QString::fromLocal8Bit(zip_strerror(archive));
}

} // namespace

SupportBundle SupportBundle::Collect(SchedulerService& service, const QString& dataDir, const QString& configFile)
{
    SupportBundle bundle;
    bundle.m_texts << qMakePair(QStringLiteral("about.txt"),
                                line(QStringLiteral("program"), QCoreApplication::applicationName())
                                    + line(QStringLiteral("written"), QDateTime::currentDateTime().toString(Qt::ISODate))
                                    + line(QStringLiteral("host"), QSysInfo::machineHostName())
                                    + line(QStringLiteral("system"), QSysInfo::prettyProductName())
                                    + line(QStringLiteral("Qt"), QString::fromLatin1(qVersion()))
                                    + line(QStringLiteral("data directory"), dataDir)
                                    + line(QStringLiteral("configuration"), configFile));
    bundle.m_texts << qMakePair(QStringLiteral("plans.txt"), plansText(service));
    bundle.m_texts << qMakePair(QStringLiteral("journals.txt"), journalsText(service));
    bundle.m_texts << qMakePair(QStringLiteral("email.txt"), emailText(service.Email()));
    if (QFileInfo(configFile).isFile())
        bundle.m_files << qMakePair(QStringLiteral("scheduler.ini"), configFile);
    const QDir logs(QDir(dataDir).filePath(QStringLiteral("log")));
    for (const QFileInfo& log : logs.entryInfoList({QStringLiteral("scheduler.log*")}, QDir::Files, QDir::Name))
        bundle.m_files << qMakePair(QStringLiteral("log/") + log.fileName(), log.absoluteFilePath());
    return bundle;
}

bool SupportBundle::CheckPath(const QString& path, QString& reason)
{
    const QFileInfo file(path);
    if (path.isEmpty() || !QDir::isAbsolutePath(path))
        reason = QStringLiteral("'%1' is not an absolute path.").arg(path);
    else if (file.exists())
        reason = QStringLiteral("%1 exists; give the name of a new file.").arg(path);
    else if (!QFileInfo(file.absolutePath()).isDir())
        reason = QStringLiteral("The folder %1 does not exist.").arg(file.absolutePath());
    return reason.isEmpty();
}

bool SupportBundle::Write(const QString& path, QString& reason) const
{
    const QString part = QFileInfo(path).absolutePath() + QStringLiteral("/.") + QFileInfo(path).fileName()
                         + QStringLiteral(".part");
    int error = 0;
    zip_t* archive = zip_open(QFile::encodeName(part).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!archive) {
        zip_error_t failure;
        zip_error_init_with_code(&failure, error);
        reason = QStringLiteral("%1 could not be made: %2.").arg(part, QString::fromLocal8Bit(zip_error_strerror(&failure)));
        zip_error_fini(&failure);
        return false;
    }
    bool added = true;
    auto add = [&](const QString& name, zip_source_t* source) {
        if (source && zip_file_add(archive, name.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8) < 0)
            zip_source_free(source);   // not taken by the archive
        else if (source)
            return;
        added = false;
    };
    // The buffers must outlive zip_close: the texts live in this object.
    for (const auto& text : m_texts)
        add(text.first, zip_source_buffer(archive, text.second.constData(), static_cast<zip_uint64_t>(text.second.size()), 0));
    for (const auto& file : m_files)
        add(file.first, zip_source_file(archive, QFile::encodeName(file.second).constData(), 0, -1));
    if (!added || zip_close(archive) != 0) {
        reason = QStringLiteral("%1 could not be written: %2.").arg(path, zipError(archive));
        zip_discard(archive);
        QFile::remove(part);
        return false;
    }
    if (!QFile::rename(part, path)) {
        reason = QStringLiteral("%1 could not be renamed to %2.").arg(part, path);
        QFile::remove(part);
        return false;
    }
    return true;
}
