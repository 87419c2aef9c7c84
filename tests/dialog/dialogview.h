#pragma once

#include "messageboxes.h"
#include "updaterepair.h"

#include <QListWidget>
#include <QTabWidget>

// The real dialog, and what a user sees of it. Message boxes are noted and closed by their Ok.
class DialogView
{
public:
    // Finds a widget by its object name; the test ends when there is none.
    template<typename Widget> Widget *find(const char *objectName)
    {
        auto *widget = dialog.findChild<Widget *>(QLatin1String(objectName));
        if (!widget) {
            qFatal("no widget %s", objectName);
        }
        return widget;
    }

    QListWidget *list() { return find<QListWidget>("devicesList"); }
    QTabWidget *tabs() { return find<QTabWidget>("tabWidget"); }
    QStringList rows();
    // Whether the tabs can be used.
    bool isUnlocked() { return tabs()->isEnabled(); }
    QString statusLine();
    // The red label, empty when it is not visible; the bar's text likewise.
    QString warning();
    QString barText();
    // The boxes so far, e.g. "critical|Update Error|the text|Ok".
    QStringList boxTexts() const;

    // The check boxes of the Settings page that are checked, by their object names without
    // "CheckBox": "reenumerate performanceMode".
    QString checkBoxes();
    // Checks these and no others.
    void setCheckBoxes(const QString &names);

    // What the labels of the page that is shown say, from top to bottom, with bars between them.
    QString pageTexts();

    // "1280x720 on, 0x0 off, ..." for the three user modes.
    QString userModes();
    void setUserMode(int mode, int width, int height, bool on);

    UpdateRepair dialog;
    MessageBoxes boxes;
};
