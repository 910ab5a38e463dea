#ifndef BACKUPFRAME_APPS_TCPSECRET_H
#define BACKUPFRAME_APPS_TCPSECRET_H

#include <QByteArray>
#include <QString>

// The secret a TCP client proves before the scheduler serves it: 64 hex digits in a file of the
// service's data directory that only its owner may read. Who can read it may talk to the service.
namespace TcpSecret {

// The file's name in the data directory.
QString FileName();
// The secret in the file, created (owner-only, never replaced) when it does not exist yet;
// false with the reason.
bool Ensure(const QString& path, QByteArray& secret, QString& error);
// The secret in an existing file; false with the reason.
bool Read(const QString& path, QByteArray& secret, QString& error);
// Compares in a time that does not depend on where the two differ.
bool Matches(const QByteArray& given, const QByteArray& secret);

} // namespace TcpSecret

#endif
