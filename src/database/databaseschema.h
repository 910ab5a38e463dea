#ifndef BACKUPFRAME_DATABASESCHEMA_H
#define BACKUPFRAME_DATABASESCHEMA_H

// The tables of the scheduler's database, for the library's statements and the hosts' alike.
namespace DatabaseSchema {
constexpr const char* SchemeTable = "tb_schemes";
constexpr const char* TaskTable = "tb_tasks";
constexpr const char* TriggerTable = "tb_triggers";
constexpr const char* JournalTable = "tb_Journals";
}

#endif
