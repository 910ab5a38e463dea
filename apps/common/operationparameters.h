#ifndef BACKUPFRAME_APPS_OPERATIONPARAMETERS_H
#define BACKUPFRAME_APPS_OPERATIONPARAMETERS_H

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

// A task's parameter block read as key=value pairs, one a line or several on a line
// separated by ';'. Keys and values are trimmed; a value may itself hold '='.
class OperationParameters
{
public:
    // False with a reason when a piece has no key, a key is given twice or is not one of knownKeys.
    bool Parse(const QByteArray& block, const QStringList& knownKeys, QString& reason);

    QString Value(const QString& key) const { return m_values.value(key); }

    // True when every path that is given is absolute (an empty one counts as given when
    // required); else false with a reason ending in expected.
    static bool AbsolutePaths(const QStringList& paths, bool required, const QString& expected, QString& reason);
    // A 0|1 key, 0 when absent; false with a reason when it holds anything else.
    bool Switch(const QString& key, bool& on, QString& reason) const;

private:
    QMap<QString, QString> m_values;
};

#endif
