#ifndef BACKUPFRAME_SCHEDULER_MAILMESSAGE_H
#define BACKUPFRAME_SCHEDULER_MAILMESSAGE_H

#include <backupframe.h>

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

// The notification mails as RFC 5322 text: what a run's mail and a test mail say, and the
// message around it (headers, encoded subject, a transfer encoding that fits the body, CRLF).
namespace MailMessage {

// The addresses of a recipients text, split on commas, semicolons and white space.
QStringList Recipients(const QString& text);
// Empty when address can stand in an envelope and a header, else what is wrong with it.
QString CheckAddress(const QString& address);

// "backupframe: PLAN Failed" unless the settings name a subject.
QString RunSubject(const JournalAttribute& journal, const QString& configured);
// Which plan ran, when, how long, the result and, for a failure, its reason and solution.
QString RunBody(const JournalAttribute& journal);
QString TestSubject(const QString& configured);
QString TestBody(const EmailConfigAttribute& settings);

// The whole message, headers and body, with CRLF line ends.
QByteArray Compose(const QString& sender, const QStringList& recipients, const QString& subject,
                   const QString& body, const QDateTime& date);
// The Subject header's value: as it is when printable ASCII, else RFC 2047 encoded words.
QByteArray EncodeHeader(const QString& text);

} // namespace MailMessage

#endif
