// The first byte picks a payload or record class, the rest is decoded into it and the result
// encoded again. Payloads go through CommandBuilder::BytearrayToData as hosts use it; the plan
// and journal records, which are no CommandObj, read from a stream prepared the same way.
#include <backupframe.h>

#include <QDataStream>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

template <typename Payload>
void decodePayload(const QByteArray& bytes)
{
    auto payload = std::make_unique<Payload>();
    CommandBuilder::BytearrayToData(bytes, payload.get());
    QByteArray again;
    CommandBuilder::DataToBytearray(payload.get(), again);
}

template <typename Record>
void decodeRecord(QByteArray bytes)
{
    Record record;
    QDataStream in(&bytes, QIODevice::ReadOnly);
    in.setVersion(PackageFormat::StreamVersion);
    record.Read(in);
    QByteArray again;
    QDataStream out(&again, QIODevice::WriteOnly);
    out.setVersion(PackageFormat::StreamVersion);
    record.Write(out);
}

using Decoder = void (*)(const QByteArray&);

const Decoder kDecoders[] = {
    decodePayload<RequestStringData>,
    decodePayload<RequestMinizipData>,
    decodePayload<RequestTriggerExecuteInfoData>,
    decodePayload<RequestEmailConfigUpdateData>,
    decodePayload<RequestNewOperationData>,
    decodePayload<SchedulerPlanData>,
    decodePayload<QstringListData>,
    decodePayload<ResultLoadJournalsData>,
    decodePayload<ResultLoadSchedulersData>,
    decodePayload<SchedulerPlan>,
    [](const QByteArray& bytes) { decodeRecord<SchemeAttribute>(bytes); },
    [](const QByteArray& bytes) { decodeRecord<TaskAttribute>(bytes); },
    [](const QByteArray& bytes) { decodeRecord<TriggerAttribute>(bytes); },
    [](const QByteArray& bytes) { decodeRecord<JournalAttribute>(bytes); },
    [](const QByteArray& bytes) { decodeRecord<PlanJournalRelational>(bytes); },
    [](const QByteArray& bytes) { decodeRecord<EmailConfigAttribute>(bytes); },
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t count = sizeof(kDecoders) / sizeof(kDecoders[0]);
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), static_cast<int>(size - 1));
    kDecoders[data[0] % count](bytes);
    return 0;
}
