#include "common/logger.h"

#include <QDir>
#include <QRegExp>
#include <QTextCodec>
#include <QtDebug>

#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/Priority.hh>
#include <log4cpp/RollingFileAppender.hh>

#include <iostream>

namespace {
const char* const kPattern = "%d [%p] <%t> %m%n";
const char* const kFileCategory = "sub1";
constexpr size_t kMaxFileSize = 10 * 1024 * 1024;
constexpr unsigned int kMaxBackupIndex = 10;
constexpr mode_t kFileMode = 0644;

QString stripTrailingSlashes(QString path, int keepLength)
{
    while (path.endsWith(QLatin1Char('/')) && path.size() > keepLength)
        path.chop(1);
    return path;
}
} // namespace

bool Logger::Initialize(const QString& baseDir, const QString& subDir, const QString& fileName)
{
    // A root "/" survives the base directory's normalisation; the sub directory loses every trailing "/".
    const QString base = stripTrailingSlashes(QDir::fromNativeSeparators(baseDir), 1);
    const QString sub = stripTrailingSlashes(QDir::fromNativeSeparators(subDir), 0);
    // One multi-argument arg(): chained calls would take a "%1" or "%2" inside the base
    // directory for a placeholder, make directories beside it and leave the file log unopened.
    const QString fullPath = QStringLiteral("%1/%2/%3").arg(base, sub, fileName);

    QString resolvedFile;
    if (!DealFileName(fullPath, resolvedFile))
        return false;

    // The appender opens (and later rolls) a name relative to the base directory.
    const std::string appenderFile = qstring2string(QStringLiteral("log/%1").arg(fileName));
    if (appenderFile.empty())
        return false;

    const QString previousDir = QDir::currentPath();
    QDir::setCurrent(baseDir);

    auto* consoleLayout = new log4cpp::PatternLayout();
    consoleLayout->setConversionPattern(kPattern);
    auto* console = new log4cpp::OstreamAppender("console", &std::cout);
    console->setLayout(consoleLayout);

    auto* fileLayout = new log4cpp::PatternLayout();
    fileLayout->setConversionPattern(kPattern);
    auto* file = new log4cpp::RollingFileAppender("default", appenderFile, kMaxFileSize,
                                                  kMaxBackupIndex, true, kFileMode);
    file->setLayout(fileLayout);

    log4cpp::Category& root = log4cpp::Category::getRoot();
    root.setPriority(log4cpp::Priority::DEBUG);
    root.addAppender(console);
    log4cpp::Category::getInstance(kFileCategory).addAppender(file);

    QDir::setCurrent(previousDir);
    return true;
}

void Logger::UnInitialize()
{
    log4cpp::Category::shutdown();
}

log4cpp::Category& Logger::GetFileLogHandle()
{
    return log4cpp::Category::getInstance(kFileCategory);
}

log4cpp::Category& Logger::GetConsoleHandle()
{
    return log4cpp::Category::getRoot();
}

bool Logger::DealFileName(const QString& path, QString& resolvedFile)
{
    resolvedFile = QLatin1String("");
    if (path.isEmpty()) {
        resolvedFile = QStringLiteral("roll.log");
        return true;
    }
    const QString native = QDir::toNativeSeparators(path);
    const int pos = native.lastIndexOf(QDir::separator(), -1, Qt::CaseSensitive);
    if (pos < 0) {
        resolvedFile = native;
        return true;
    }
    const QString dir = native.left(pos + 1);
    resolvedFile = native;
    if (pos == native.size() - 1)
        resolvedFile = dir + QStringLiteral("roll.log");
    return QDir().mkpath(dir);
}

std::string Logger::qstring2string(const QString& text)
{
    const std::string utf8 = text.toStdString();
    // Names holding CJK ideographs go to the file functions as GB18030 bytes.
    const QRegExp ideographs(QStringLiteral("[\\x4e00-\\x9fa5]+"), Qt::CaseSensitive);
    if (ideographs.indexIn(text) < 0)
        return utf8;
    QTextCodec* codec = QTextCodec::codecForName("GB18030");
    if (!codec) {
        qCritical("The program path contains illegal characters!");
        return std::string();
    }
    const QByteArray encoded = codec->fromUnicode(text);
    return std::string(encoded.constData());   // up to the first zero byte
}
