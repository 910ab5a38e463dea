// The receive path over a real local socket pair: the input is cut into chunks, each written
// to one end and read at the other by CommunObject::ReadBlockBytes into one sink, as a server
// does with whatever a peer sends. Every package it emits is decoded as a command.
//
// Input: [settings byte] then chunks of [length byte][that many bytes]; the settings byte picks
// the emit buffer limit (bits 0-1) and a package-size limit (bits 2-7, none when 0).
#include <backupframe.h>

#include <QCoreApplication>
#include <QLocalSocket>

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

struct SocketPair {
    QLocalSocket reader;
    int writer = -1;
};

SocketPair* g_pair = nullptr;

bool writeAll(int fd, const uint8_t* data, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

// Waits until the reader holds the count just written: ReadBlockBytes takes what is there.
bool arrive(QLocalSocket& reader, qint64 expected)
{
    while (reader.bytesAvailable() < expected) {
        if (!reader.waitForReadyRead(5000))
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    new QCoreApplication(*argc, *argv);
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0)
        std::abort();
    g_pair = new SocketPair;
    if (!g_pair->reader.setSocketDescriptor(fds[0]))
        std::abort();
    g_pair->writer = fds[1];
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    static const qint64 kEmitLimits[] = {0, 9, 64, CommunObject::kDefaultEmitBufferLimit};
    CommunObject::SetEmitBufferLimit(kEmitLimits[data[0] & 3]);
    CommunObject framing;
    framing.SetMaxPackageSize(data[0] >> 2);
    QObject::connect(&framing, &CommunObject::readyReadBytes, [](QIODevice*, const QByteArray& package) {
        CommandBuilder::DestroyCommand(CommandBuilder::BytearrayToCommand(package));
    });

    SocketSinkData sink;
    size_t offset = 1;
    while (offset < size) {
        const size_t length = qMin<size_t>(data[offset], size - offset - 1);
        ++offset;
        if (length == 0)
            continue;
        if (!writeAll(g_pair->writer, data + offset, length) || !arrive(g_pair->reader, static_cast<qint64>(length)))
            std::abort();
        offset += length;
        framing.ReadBlockBytes(&g_pair->reader, CommunAttribute::LocalProtocol, &sink);
        if (sink.getProgress() != sink.getRfrnData().size())
            std::abort();   // the count held must always match the bytes held
    }
    return 0;
}
