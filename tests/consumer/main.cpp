#include <backupframe.h>

#include <cstdio>

int main()
{
    CommCommand* request = CommandBuilder::BuilderCommand(LoadSchedulersType);
    request->setPlanName(QStringLiteral("consumer"));
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(request, bytes);
    CommCommand* back = CommandBuilder::BytearrayToCommand(bytes);
    const bool same = back && back->getCommandType() == LoadSchedulersType
        && back->getPlanName() == request->getPlanName();
    CommandBuilder::DestroyCommand(back);
    CommandBuilder::DestroyCommand(request);
    std::printf("consumer: %d bytes, %s\n", static_cast<int>(bytes.size()), same ? "equal" : "different");
    return same ? 0 : 1;
}
