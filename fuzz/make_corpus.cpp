// Writes the seed corpus of the fuzz targets: real encodings of commands, payloads and records,
// framed streams, configuration files and command lines. Run once: fuzz_make_corpus <fuzz dir>.
#include <backupframe.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <memory>

namespace {

QString g_root;

// The file is named by its content, so that running this again adds nothing twice.
void seed(const QString& target, const QByteArray& bytes)
{
    QDir().mkpath(g_root + QLatin1Char('/') + target);
    QFile file(QStringLiteral("%1/%2/%3").arg(g_root, target,
               QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex().left(16))));
    if (file.open(QIODevice::WriteOnly))
        file.write(bytes);
}

QByteArray encodeCommand(quint64 type, const QByteArray& requestData)
{
    std::unique_ptr<CommCommand> command(CommandBuilder::BuilderCommand(type));
    command->setPlanUuid(QStringLiteral("6f1c2a4e-0000-4000-8000-000000000001"));
    command->setPlanName(QStringLiteral("nightly"));
    if (auto* request = dynamic_cast<RequestCommand*>(command.get()))
        request->setRequestData(requestData);
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(command.get(), bytes);
    return bytes;
}

QByteArray encodeData(CommandObj* data)
{
    QByteArray bytes;
    CommandBuilder::DataToBytearray(data, bytes);
    return bytes;
}

QList<QByteArray> payloads()
{
    RequestStringData text;
    text.setStringValue(QStringLiteral("plan name"));
    text.setDstRemoteUser(QStringLiteral("user"));
    text.setDstRemotePwd("secret");
    RequestNewOperationData operation;
    operation.setCreateTime(QStringLiteral("2026-01-02 03:04:05"));
    QstringListData strings;
    strings.setQstringList({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("a")});
    ResultLoadJournalsData journals;
    journals.getObjectJournalAttrList().append(new JournalAttribute);
    ResultLoadSchedulersData plans;
    plans.getObjectActionPlansList().append(new SchedulerPlan);
    RequestMinizipData zip;
    RequestTriggerExecuteInfoData trigger;
    RequestEmailConfigUpdateData email;
    SchedulerPlanData plan;
    SchedulerPlan record;
    return {encodeData(&text), encodeData(&zip), encodeData(&trigger), encodeData(&email), encodeData(&operation),
            encodeData(&plan), encodeData(&strings), encodeData(&journals), encodeData(&plans), encodeData(&record)};
}

// The plain records, in fuzz_payload's order after the ten payloads.
QList<QByteArray> records()
{
    QList<QByteArray> encoded;
    auto write = [&encoded](auto record) {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out.setVersion(PackageFormat::StreamVersion);
        record.Write(out);
        encoded.append(bytes);
    };
    write(SchemeAttribute());
    write(TaskAttribute());
    write(TriggerAttribute());
    write(JournalAttribute());
    write(PlanJournalRelational());
    write(EmailConfigAttribute());
    return encoded;
}

QByteArray chunked(char settings, const QByteArray& stream, int chunk)
{
    QByteArray input(1, settings);
    for (int at = 0; at < stream.size(); at += chunk)
        input += char(qMin(chunk, stream.size() - at)) + stream.mid(at, chunk);
    return input;
}

QByteArray arguments(const QStringList& list)
{
    return list.join(QChar(0)).toUtf8();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    g_root = app.arguments().value(1, QStringLiteral("corpus"));

    const QList<QByteArray> data = payloads() + records();
    for (int index = 0; index < data.size(); ++index)
        seed(QStringLiteral("fuzz_payload"), char(index) + data[index]);

    QList<QByteArray> commands;
    for (quint64 type : {1, 2, 101, 200, 201, 600, 802, 805, 2000, 3000, 4000, 5000})
        commands.append(encodeCommand(type, data[type == 200 ? 4 : 0]));
    for (const QByteArray& command : commands)
        seed(QStringLiteral("fuzz_command"), command);

    seed(QStringLiteral("fuzz_receive"), chunked(3, commands[3], 200));
    seed(QStringLiteral("fuzz_receive"), chunked(0, commands[0] + commands[4], 3));
    seed(QStringLiteral("fuzz_receive"), chunked(1, commands[1] + commands[2] + commands[8], 17));
    seed(QStringLiteral("fuzz_receive"), chunked(char(0x13), commands[5] + commands[6], 7));

    seed(QStringLiteral("fuzz_config"),
         "[Network]\nagent_local_server_name=AgentLocalServer\nscheduler_local_server_name=SchedulerLocalServer\n"
         "tcp_server_port=6060\ntcp_server_code=88\n[TriggerFire]\ndate_time_fire_type=2\n"
         "[Operation]\noperation_execute_type=1\n");
    QTemporaryDir dir;
    EmailConfigReaderWriter email;
    email.Init(dir.filePath(QStringLiteral("email.ini")));
    email.setMailRecipients(QStringLiteral("a@example.org, b@example.org"));
    email.setLoginPassword("password");
    email.WriteConfig();
    QFile written(dir.filePath(QStringLiteral("email.ini")));
    if (written.open(QIODevice::ReadOnly))
        seed(QStringLiteral("fuzz_config"), written.readAll());

    const QList<QStringList> lines = {
        {QStringLiteral("new"), QStringLiteral("nightly"), QStringLiteral("copy"), QStringLiteral("source=/a;destination=/b"),
         QStringLiteral("--type"), QStringLiteral("weekly"), QStringLiteral("--start"), QStringLiteral("2026-01-02 03:04:05"),
         QStringLiteral("--week-days"), QStringLiteral("1,3,5")},
        {QStringLiteral("edit"), QStringLiteral("nightly"), QStringLiteral("--months"), QStringLiteral("1,2"),
         QStringLiteral("--month-days"), QStringLiteral("5"), QStringLiteral("--last-day"), QStringLiteral("--interval"),
         QStringLiteral("2"), QStringLiteral("--duration"), QStringLiteral("3")},
        {QStringLiteral("--json"), QStringLiteral("--timeout"), QStringLiteral("2.5"), QStringLiteral("run"),
         QStringLiteral("nightly"), QStringLiteral("--follow")},
        {QStringLiteral("help"), QStringLiteral("restore")}};
    for (const QStringList& line : lines)
        seed(QStringLiteral("fuzz_options"), char(0) + arguments(line));
    seed(QStringLiteral("fuzz_options"), QByteArray(1, 1) + "source = /a\nverify=1");
    seed(QStringLiteral("fuzz_options"), QByteArray(1, 2) + "source=/tmp;destination=/tmp/x;exclude=*.tmp,cache/*;verify=1");
    seed(QStringLiteral("fuzz_options"), QByteArray(1, 3) + "source=/tmp\ndestination=/var/tmp\nkeep=3");
    seed(QStringLiteral("fuzz_options"), QByteArray(1, 4) + "source=/tmp;destination=/var/tmp;path=a/b;overwrite=1");
    seed(QStringLiteral("fuzz_options"), QByteArray(1, 5) + "backup=/var/tmp;source=/tmp;exclude=*.o");
    return 0;
}
