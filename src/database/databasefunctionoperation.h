#ifndef BACKUPFRAME_DATABASEFUNCTIONOPERATION_H
#define BACKUPFRAME_DATABASEFUNCTIONOPERATION_H

#include "backupframe_global.h"

#include <QHash>
#include <QString>

class QSqlDatabase;
class QSqlQuery;
class TriggerAttribute;

// The scheduler's SQLite store: owns the one process-wide connection (Qt's default
// connection name), creates the four tables with a new file and reads triggers back.
// Hosts derive from it for their own statements; use it from the thread that called Init.
class BACKUPFRAME_EXPORT DatabaseFunctionOperation
{
public:
    DatabaseFunctionOperation();
    DatabaseFunctionOperation(const DatabaseFunctionOperation& other);
    DatabaseFunctionOperation& operator=(const DatabaseFunctionOperation& other);
    virtual ~DatabaseFunctionOperation();

    // Opens dbfile, creating its directory, the file and the tables when it does not exist.
    // An existing file is not read here: one that holds no database, or may not be written,
    // fails at its first statement. A new file whose tables could not all be made stays,
    // with the connection open. A connection left by an earlier Init is closed and released first.
    bool Init(const QString& dbfile);
    void UnInit();
    // One new record per stored plan whose trigger row exists, keyed by plan uuid;
    // the caller owns (and deletes) the records put into the hash.
    bool LoadTriggerAttributes(QHash<QString, TriggerAttribute*>& triggers);

protected:
    bool CreateAllTables();
    bool CreateSchemeTable(QSqlQuery& query);
    bool CreateTaskTable(QSqlQuery& query);
    bool CreateTriggerTable(QSqlQuery& query);
    bool CreateJournalTable(QSqlQuery& query);

    // Reads the trigger row named triggerName into trigger (its name is left alone);
    // found becomes 1 when the row exists. The five numbers come back cut to 32 bits.
    static bool SelectTrigger(const QString& triggerName, TriggerAttribute& trigger, quint64& found);

    // The shared connection: null until Init, and again after UnInit.
    static QSqlDatabase* m_pdb;
};

#endif
