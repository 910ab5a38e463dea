// Decodes arbitrary bytes as a command, the way a host decodes what a peer sent, then encodes
// the result again: neither step may crash, read out of bounds or leak.
#include <backupframe.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    CommCommand* command = CommandBuilder::BytearrayToCommand(bytes);
    if (command) {
        QByteArray again;
        CommandBuilder::CommandToBytearray(command, again);
        CommandBuilder::DestroyCommand(command);
    }
    return 0;
}
