// Arbitrary file contents as the service configuration (ConfigReader::IniReader) and as the
// e-mail settings (EmailConfigReaderWriter::ReadConfig). Each input gets a file name of its
// own: QSettings caches what it parsed per file and might otherwise hand back the last one.
#include <backupframe.h>

#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {
QTemporaryDir* g_dir = nullptr;
quint64 g_count = 0;
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    g_dir = new QTemporaryDir;
    if (!g_dir->isValid())
        std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = g_dir->filePath(QStringLiteral("input%1.ini").arg(++g_count));
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            std::abort();
        file.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    }
    ConfigReader::IniReader(path);
    EmailConfigReaderWriter email;
    if (email.Init(path))
        email.ReadConfig();
    email.UnInit();
    QFile::remove(path);
    return 0;
}
