// backupframe-desktop: the desktop program in which a person sets up backup plans, watches them
// run and reads their journals, talking to the reference scheduler service.
//
//   backupframe-desktop [--server-name NAME] [--config FILE] [--screenshots FOLDER]
//
// The server name comes from --server-name, else from the scheduler's configuration
// (Network/scheduler_local_server_name of --config, by default the scheduler's own
// <data directory>/scheduler.ini), else "SchedulerLocalServer".

#include "mainwindow.h"
#include "screenshots.h"

#include <backupframe.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace {

QString defaultConfigFile()
{
    const QString dataRoot = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return QDir(dataRoot).filePath(QStringLiteral("backupframe/backupframe-scheduler/scheduler.ini"));
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("backupframe-desktop"));
    QApplication::setOrganizationName(QStringLiteral("backupframe"));
    QApplication::setApplicationVersion(QString::fromLatin1(BACKUPFRAME_DESKTOP_VERSION));
    QApplication::setApplicationDisplayName(QApplication::translate("main", "Backups"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QApplication::translate("main", "Sets up backup plans, runs them and shows their journals."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption serverName(QStringLiteral("server-name"),
                                        QApplication::translate("main", "The local server name the service serves."),
                                        QStringLiteral("NAME"));
    const QCommandLineOption config(QStringLiteral("config"),
                                    QApplication::translate("main", "The service's configuration file."),
                                    QStringLiteral("FILE"), defaultConfigFile());
    const QCommandLineOption screenshots(
        QStringLiteral("screenshots"), QApplication::translate("main", "Writes PNGs of the windows into FOLDER and quits."),
        QStringLiteral("FOLDER"));
    parser.addOptions({serverName, config, screenshots});
    parser.process(app);

    ConfigReader::IniReader(QFileInfo(parser.value(config)).absoluteFilePath());
    CommunAttribute endpoint;
    endpoint.setProtocolType(CommunAttribute::LocalProtocol);
    endpoint.setDestSvrNameIp(parser.isSet(serverName) ? parser.value(serverName)
                                                      : ConfigReader::getSchedulerLocalServerName());

    MainWindow window(endpoint);
    if (!window.Start()) {
        qCritical("backupframe-desktop: the connection worker did not start");
        return 1;
    }
    window.show();
    if (parser.isSet(screenshots))
        TakeScreenshots(&window, parser.value(screenshots));
    return app.exec();
}
