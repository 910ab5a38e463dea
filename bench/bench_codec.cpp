// The codec against one bare QDataStream: a "LoadSchedulers" result (ResultCommand carrying
// ResultLoadSchedulersData) of 10, 1 000, 10 000 and 100 000 plans is encoded and decoded
// the library's way (payload, result command, package) and the same plans are written and
// read back to back in one stream. Also a small request, and the growth of the time per plan
// from 1 000 to 100 000 plans (1.00 is linear). At 10 000 plans and more, the baseline also
// with the one copy of the payload the result command requires in each direction.

#include "benchtable.h"

#include <backupframe.h>

#include <QCoreApplication>
#include <QDataStream>

#include <memory>

namespace {

SchedulerPlan* makePlan(int i)
{
    auto* plan = new SchedulerPlan;
    const QString id = QStringLiteral("{%1-7d3a-4c1e-9b2f-5a6e8c0d1f23}").arg(i, 8, 16, QLatin1Char('0'));
    plan->setPlanUuid(id);
    plan->setPlanName(QStringLiteral("nightly copy of the documents %1").arg(i));
    plan->getObjectSchemeAttribute().setCreateTime(QStringLiteral("2024-01-01 00:00:00"));
    plan->getObjectTaskAttribute().setTaskName(QStringLiteral("job-") + id);
    plan->getObjectTaskAttribute().setOperationRegisterName(QStringLiteral("copy"));
    plan->getObjectTaskAttribute().setOperationParameter(QByteArray(120, 'p'));
    TriggerAttribute& trigger = plan->getObjectTriggerAttribute();
    trigger.setTriggerName(QStringLiteral("trigger-") + id);
    trigger.setTriggerType(1);
    trigger.setStartTime(QStringLiteral("2024-01-01 02:00:00"));
    trigger.setWeekDays(QStringLiteral("1,2,3,4,5"));
    return plan;
}

QByteArray encodeLibrary(ResultLoadSchedulersData& data)
{
    QByteArray payload;
    CommandBuilder::DataToBytearray(&data, payload);
    ResultCommand result(ResultCommandType);
    result.setSendCommandType(LoadSchedulersType);
    result.setResultData(payload);
    QByteArray package;
    CommandBuilder::CommandToBytearray(&result, package);
    return package;
}

int decodeLibrary(const QByteArray& package)
{
    std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(package));
    auto* result = dynamic_cast<ResultCommand*>(command.get());
    ResultLoadSchedulersData data;
    CommandBuilder::BytearrayToData(result->getRfrnResultData(), &data);
    return data.getObjectActionPlansList().size();
}

QByteArray encodeBare(const QList<SchedulerPlan*>& plans)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(PackageFormat::StreamVersion);
    for (SchedulerPlan* plan : plans)
        plan->Write(out);
    return bytes;
}

int decodeBare(QByteArray bytes)
{
    QList<SchedulerPlan*> plans;
    QDataStream in(&bytes, QIODevice::ReadOnly);
    in.setVersion(PackageFormat::StreamVersion);
    while (!in.atEnd()) {
        auto* plan = new SchedulerPlan;
        plan->Read(in);
        plans.append(plan);
    }
    const int count = plans.size();
    qDeleteAll(plans);
    return count;
}

// Fills perPlan with library encode, bare encode, library decode, bare decode, in seconds per plan.
void benchPlans(int count, double perPlan[4])
{
    ResultLoadSchedulersData data;
    for (int i = 0; i < count; ++i)
        data.getObjectActionPlansList().append(makePlan(i));
    const QList<SchedulerPlan*> plans = data.getActionPlansList();
    const int runs = count >= 100000 ? 5 : count >= 10000 ? 9 : 21;
    const int repeat = count <= 10 ? 2000 : 1;   // tiny cases repeat inside one sample

    QByteArray package;
    QByteArray bare;
    const double libEncode = BenchTable::medianSeconds(runs, [&] {
        for (int r = 0; r < repeat; ++r)
            package = encodeLibrary(data);
    }) / repeat;
    const double bareEncode = BenchTable::medianSeconds(runs, [&] {
        for (int r = 0; r < repeat; ++r)
            bare = encodeBare(plans);
    }) / repeat;
    int decoded = 0;
    const double libDecode = BenchTable::medianSeconds(runs, [&] {
        for (int r = 0; r < repeat; ++r)
            decoded = decodeLibrary(package);
    }) / repeat;
    int bareDecoded = 0;
    const double bareDecode = BenchTable::medianSeconds(runs, [&] {
        for (int r = 0; r < repeat; ++r)
            bareDecoded = decodeBare(bare);
    }) / repeat;
    // The contract's floor: the payload is a byte array of its own inside the result command,
    // so it is copied into the package once when encoding and out of it once when decoding.
    const double floorEncode = BenchTable::medianSeconds(runs, [&] {
        for (int r = 0; r < repeat; ++r) {
            QByteArray package;
            QDataStream out(&package, QIODevice::WriteOnly);
            const QByteArray payload = encodeBare(plans);
            out << payload;
        }
    }) / repeat;
    QByteArray nested;
    {
        QDataStream out(&nested, QIODevice::WriteOnly);
        out << bare;
    }
    const double floorDecode = BenchTable::medianSeconds(runs, [&] {
        for (int r = 0; r < repeat; ++r) {
            QDataStream in(nested);
            QByteArray payload;
            in >> payload;
            bareDecoded = decodeBare(payload);
        }
    }) / repeat;
    if (decoded != count || bareDecoded != count)
        std::fprintf(stderr, "codec: decoded %d and %d of %d plans\n", decoded, bareDecoded, count);

    const std::string label = "codec " + std::to_string(count) + " plans ";
    BenchTable::row(label + "encode", libEncode * 1e3, bareEncode * 1e3, "ms");
    BenchTable::row(label + "decode", libDecode * 1e3, bareDecode * 1e3, "ms");
    if (count >= 10000) {   // the rate, kplans/s (its ratio is the inverse of the time's)
        BenchTable::row(label + "encode vs bare + 1 copy", libEncode * 1e3, floorEncode * 1e3, "ms");
        BenchTable::row(label + "decode vs bare + 1 copy", libDecode * 1e3, floorDecode * 1e3, "ms");
        BenchTable::row(label + "encode rate", count / libEncode / 1e3, count / bareEncode / 1e3, "k/s");
        BenchTable::row(label + "decode rate", count / libDecode / 1e3, count / bareDecode / 1e3, "k/s");
    }
    perPlan[0] = libEncode / count;
    perPlan[1] = bareEncode / count;
    perPlan[2] = libDecode / count;
    perPlan[3] = bareDecode / count;
}

void benchSmallRequest()
{
    RequestCommand request(CustomCommandType);
    request.setClientUuid(QStringLiteral("bench-client"));
    request.setPlanUuid(QStringLiteral("{00000001-7d3a-4c1e-9b2f-5a6e8c0d1f23}"));
    request.setRequestData(QByteArray(16, 'r'));
    const int repeat = 20000;
    QByteArray package;
    const double libEncode = BenchTable::medianSeconds(9, [&] {
        for (int r = 0; r < repeat; ++r) {
            package.clear();
            CommandBuilder::CommandToBytearray(&request, package);
        }
    }) / repeat;
    QByteArray bare;
    const double bareEncode = BenchTable::medianSeconds(9, [&] {
        for (int r = 0; r < repeat; ++r) {
            bare.clear();
            QDataStream out(&bare, QIODevice::WriteOnly);
            out.setVersion(PackageFormat::StreamVersion);
            out << qint64(0) << qint64(CustomCommandType);
            request.Write(out);
        }
    }) / repeat;
    const double libDecode = BenchTable::medianSeconds(9, [&] {
        for (int r = 0; r < repeat; ++r)
            CommandBuilder::DestroyCommand(CommandBuilder::BytearrayToCommand(package));
    }) / repeat;
    const double bareDecode = BenchTable::medianSeconds(9, [&] {
        for (int r = 0; r < repeat; ++r) {
            QDataStream in(&bare, QIODevice::ReadOnly);
            in.setVersion(PackageFormat::StreamVersion);
            qint64 length = 0;
            qint64 type = 0;
            in >> length >> type;
            RequestCommand decoded(static_cast<quint64>(type));
            decoded.Read(in);
        }
    }) / repeat;
    BenchTable::row("codec small request encode", libEncode * 1e6, bareEncode * 1e6, "us");
    BenchTable::row("codec small request decode", libDecode * 1e6, bareDecode * 1e6, "us");
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (app.arguments().contains(QStringLiteral("--header")))
        BenchTable::header();
    double at1k[4] = {1, 1, 1, 1};
    for (const int count : {10, 1000, 10000, 100000}) {
        double perPlan[4] = {0, 0, 0, 0};
        benchPlans(count, perPlan);
        if (count == 1000)
            std::copy(perPlan, perPlan + 4, at1k);
        if (count != 100000)
            continue;
        // Time per plan at 100 000 over that at 1 000: 1.00 is linear.
        BenchTable::row("codec growth 1k->100k, encode per plan", perPlan[0] / at1k[0], perPlan[1] / at1k[1], "x");
        BenchTable::row("codec growth 1k->100k, decode per plan", perPlan[2] / at1k[2], perPlan[3] / at1k[3], "x");
    }
    benchSmallRequest();
    return 0;
}
