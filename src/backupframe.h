#ifndef BACKUPFRAME_H
#define BACKUPFRAME_H

// Every public header of the library.

#include "backupframe_global.h"

// model/: plan and journal records

// command/: commands, builder, payload records
#include "command/commandobj.h"
#include "command/commcommand.h"
#include "command/requestcommand.h"
#include "command/resultcommand.h"
#include "command/commandbuilder.h"

// commun/: transport
#include "commun/communattribute.h"

// database/: SQLite storage

// config/: service configuration and e-mail settings
#include "config/configreader.h"

// common/: logging, tools, error codes
#include "common/logger.h"
#include "common/commontools.h"
#include "common/frameerrorcode.h"

#endif
