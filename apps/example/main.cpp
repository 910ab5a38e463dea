// Builds a "LoadSchedulers" request, encodes it, shows the bytes, decodes them
// and says whether the same command came back.
#include <backupframe.h>

#include <QCoreApplication>
#include <QTextStream>

#include <memory>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);

    using CommandPtr = std::unique_ptr<CommCommand, void (*)(CommCommand*)>;
    CommandPtr request(CommandBuilder::BuilderCommand(LoadSchedulersType), &CommandBuilder::DestroyCommand);
    request->getObjectCommunAttribute().setProtocolType(CommunAttribute::LocalProtocol);
    request->getObjectCommunAttribute().setDestSvrNameIp(QStringLiteral("SchedulerLocalServer"));
    request->setPlanName(QStringLiteral("example"));
    request->CreateTraceFlag();

    QByteArray bytes;
    CommandBuilder::CommandToBytearray(request.get(), bytes);
    out << "length:     " << bytes.size() << " bytes\n";
    out << "type:       " << request->getCommandType() << "\n";
    out << "trace flag: " << request->getTraceFlag() << "\n";
    out << "bytes:\n";
    for (int i = 0; i < bytes.size(); i += 16)
        out << "  " << bytes.mid(i, 16).toHex(' ') << "\n";

    CommandPtr back(CommandBuilder::BytearrayToCommand(bytes), &CommandBuilder::DestroyCommand);
    QByteArray again;
    CommandBuilder::CommandToBytearray(back.get(), again);
    const bool equal = back && dynamic_cast<RequestCommand*>(back.get()) && again == bytes;
    out << "decoded:    " << (equal ? "the same RequestCommand came back" : "a different command came back")
        << "\n";
    return equal ? 0 : 1;
}
