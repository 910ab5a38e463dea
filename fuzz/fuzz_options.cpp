// The parsing of what a user or a plan hands the programs. The first byte picks the parser:
// the agent's command line (AgentOptions, then the trigger options of "new" and "edit"), a
// parameter block (OperationParameters), or the parameter block of a copy, zip, restore or
// verify task. For the command line the rest is split into arguments at every NUL byte.
#include "agentoptions.h"
#include "triggeroptions.h"

#include "copyjob.h"
#include "operationparameters.h"
#include "restorejob.h"
#include "verifyjob.h"
#include "zipjob.h"

#include <QCoreApplication>

#include <cstddef>
#include <cstdint>

namespace {

void parseCommandLine(const QByteArray& bytes)
{
    QStringList arguments{QStringLiteral("backupframe-agent")};
    for (const QByteArray& piece : bytes.split('\0'))
        arguments.append(QString::fromUtf8(piece));
    AgentOptions options;
    const AgentOptions::Outcome outcome = options.Parse(arguments);
    if (outcome == AgentOptions::Help)
        options.HelpText();
    if (outcome != AgentOptions::Run)
        return;
    TriggerOptions trigger;
    QString error;
    if (!trigger.Parse(options, error))
        return;
    RequestNewOperationData fresh;
    trigger.FillNew(fresh);
    TriggerAttribute existing;
    trigger.ApplyTo(existing);
}

void parseParameters(const QByteArray& block)
{
    OperationParameters parameters;
    QString reason;
    bool on = false;
    if (parameters.Parse(block, {QStringLiteral("source"), QStringLiteral("verify")}, reason))
        parameters.Switch(QStringLiteral("verify"), on, reason);
}

template <typename Settings>
void parseSettings(const QByteArray& block)
{
    Settings settings;
    QString reason;
    Settings::Parse(block, settings, reason);
}

using Parser = void (*)(const QByteArray&);
const Parser kParsers[] = {parseCommandLine, parseParameters, parseSettings<CopySettings>,
                           parseSettings<ZipSettings>, parseSettings<RestoreSettings>,
                           parseSettings<VerifySettings>};

} // namespace

// The help text names the program through QCoreApplication, which the agent always has.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    new QCoreApplication(*argc, *argv);
    QCoreApplication::setApplicationName(QStringLiteral("backupframe-agent"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), static_cast<int>(size - 1));
    kParsers[data[0] % (sizeof(kParsers) / sizeof(kParsers[0]))](bytes);
    return 0;
}
