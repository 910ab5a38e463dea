#include "operationparameters.h"

#include <QDir>

#include <QRegularExpression>

bool OperationParameters::Parse(const QByteArray& block, const QStringList& knownKeys, QString& reason)
{
    m_values.clear();
    static const QRegularExpression separators(QStringLiteral("[\\r\\n;]"));
    const QStringList pieces = QString::fromUtf8(block).split(separators, Qt::SkipEmptyParts);
    for (const QString& piece : pieces) {
        if (piece.trimmed().isEmpty())
            continue;
        const int equals = piece.indexOf(QLatin1Char('='));
        const QString key = piece.left(equals).trimmed();
        if (equals < 0 || key.isEmpty()) {
            reason = QStringLiteral("'%1' is not a key=value pair.").arg(piece.trimmed());
            return false;
        }
        if (!knownKeys.contains(key)) {
            reason = QStringLiteral("'%1' is not a known key.").arg(key);
            return false;
        }
        if (m_values.contains(key)) {
            reason = QStringLiteral("'%1' is given twice.").arg(key);
            return false;
        }
        m_values.insert(key, piece.mid(equals + 1).trimmed());
    }
    return true;
}

bool OperationParameters::Switch(const QString& key, bool& on, QString& reason) const
{
    const QString value = Value(key);
    on = value == QLatin1String("1");
    if (value.isEmpty() || value == QLatin1String("0") || on)
        return true;
    reason = QStringLiteral("'%1=%2' is neither %1=0 nor %1=1.").arg(key, value);
    return false;
}

bool OperationParameters::AbsolutePaths(const QStringList& paths, bool required, const QString& expected,
                                        QString& reason)
{
    for (const QString& path : paths) {
        if (path.isEmpty() && required) {
            reason = expected;
            return false;
        }
        if (!path.isEmpty() && !QDir::isAbsolutePath(path)) {
            reason = QStringLiteral("'%1' is not an absolute path. ").arg(path) + expected;
            return false;
        }
    }
    return true;
}
