#include "tcpsecret.h"

#include <QFile>
#include <QRandomGenerator>

#include <fcntl.h>
#include <unistd.h>

namespace TcpSecret {

QString FileName()
{
    return QStringLiteral("tcp.secret");
}

bool Read(const QString& path, QByteArray& secret, QString& error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot read the TCP secret %1: %2").arg(path, file.errorString());
        return false;
    }
    secret = file.read(256).trimmed();
    if (secret.size() < 32) {
        error = QStringLiteral("the TCP secret %1 is too short").arg(path);
        return false;
    }
    return true;
}

bool Ensure(const QString& path, QByteArray& secret, QString& error)
{
    // Made with its mode at once (O_EXCL): there is no moment at which others could read it.
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (fd < 0)
        return Read(path, secret, error);
    quint32 words[8];
    QRandomGenerator::system()->fillRange(words);
    secret = QByteArray(reinterpret_cast<const char*>(words), sizeof words).toHex();
    const QByteArray line = secret + '\n';
    const bool written = ::write(fd, line.constData(), static_cast<size_t>(line.size())) == line.size();
    ::close(fd);
    if (!written) {
        QFile::remove(path);
        error = QStringLiteral("cannot write the TCP secret %1").arg(path);
    }
    return written;
}

bool Matches(const QByteArray& given, const QByteArray& secret)
{
    if (given.size() != secret.size() || secret.isEmpty())
        return false;
    unsigned char difference = 0;
    for (int i = 0; i < secret.size(); ++i)
        difference |= static_cast<unsigned char>(given[i] ^ secret[i]);
    return difference == 0;
}

} // namespace TcpSecret
