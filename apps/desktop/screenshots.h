#ifndef BACKUPFRAME_DESKTOP_SCREENSHOTS_H
#define BACKUPFRAME_DESKTOP_SCREENSHOTS_H

#include <QString>

class MainWindow;

// Once the window shows the service's plans (or the banner, when nobody answers), writes PNGs of
// the main window, the plan dialog of the first plan, the journals and the e-mail settings into
// folder, then quits the application. For the README's screenshot command.
void TakeScreenshots(MainWindow* window, const QString& folder);

#endif
