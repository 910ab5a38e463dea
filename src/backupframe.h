#ifndef BACKUPFRAME_H
#define BACKUPFRAME_H

// Every public header of the library.

#include "backupframe_global.h"

// model/: plan and journal records
#include "model/schemeattribute.h"
#include "model/taskattribute.h"
#include "model/triggerattribute.h"
#include "model/schedulerplan.h"
#include "model/journalattribute.h"
#include "model/planjournalrelational.h"

// command/: commands, builder, payload records
#include "command/commandobj.h"
#include "command/commcommand.h"
#include "command/requestcommand.h"
#include "command/resultcommand.h"
#include "command/commandbuilder.h"
#include "command/packageformat.h"
#include "command/requestnewoperationdata.h"
#include "command/schedulerdialogdata.h"
#include "command/requeststringdata.h"
#include "command/requestminizipdata.h"
#include "command/requesttriggerexecuteinfodata.h"
#include "command/requestemailconfigupdatedata.h"
#include "command/schedulerplandata.h"
#include "command/qstringlistdata.h"
#include "command/resultloadjournalsdata.h"
#include "command/resultloadschedulersdata.h"

// commun/: transport
#include "commun/communattribute.h"
#include "commun/socketsinkdata.h"
#include "commun/communobject.h"
#include "commun/communserver.h"
#include "commun/communclientwork.h"
#include "commun/socketcommandpackage.h"
#include "commun/communproducerconsumermanager.h"
#include "commun/clientcommunmanager.h"
#include "commun/commterminal.h"

// database/: SQLite storage
#include "database/databasefunctionoperation.h"
#include "database/databaseschema.h"

// config/: service configuration and e-mail settings
#include "config/configreader.h"
#include "config/emailconfigattribute.h"
#include "config/emailconfigreaderwriter.h"

// common/: logging, tools, error codes
#include "common/logger.h"
#include "common/commontools.h"
#include "common/frameerrorcode.h"
#include "common/timetext.h"

#endif
