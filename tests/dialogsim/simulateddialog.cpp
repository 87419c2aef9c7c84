#include "simulateddialog.h"

#include "devicescanner.h"

#include <QAbstractButton>
#include <QTabBar>

SimulatedDialog::SimulatedDialog() : scanner(dialog.findChild<DeviceScanner *>())
{
    QObject::connect(scanner, &DeviceScanner::scan, &dialog, [this] { ++scansAsked; });
    // Queued: the dialog is to have reacted before the scan counts as ended.
    QObject::connect(
        scanner, &DeviceScanner::complete, &dialog, [this] { ++scansEnded; }, Qt::QueuedConnection);
    QObject::connect(find<QProgressBar>("updateProgress"), &QProgressBar::valueChanged, &dialog,
                     [this](int value) { progress.append(value); });
    dialog.show();
    if (!QTest::qWaitForWindowExposed(&dialog) || !waitForScan(1)) {
        qFatal("the dialog does not start");
    }
}

QStringList SimulatedDialog::rows()
{
    QStringList texts;
    for (int row = 0; row < list()->count(); ++row) {
        texts.append(list()->item(row)->text());
    }
    return texts;
}

int SimulatedDialog::rowOf(const QString &serial)
{
    for (int row = 0; row < list()->count(); ++row) {
        if (list()->item(row)->text().contains('(' + serial + ", ")) {
            return row;
        }
    }
    return -1;
}

QString SimulatedDialog::checkBoxes()
{
    QStringList checked;
    for (QCheckBox *box : find<QWidget>("tabSettings")->findChildren<QCheckBox *>()) {
        if (box->isChecked()) {
            checked.append(box->objectName().remove("CheckBox"));
        }
    }
    return checked.join(' ');
}

QString SimulatedDialog::userModes()
{
    const auto text = [this](const char *group, const char *width, const char *height) {
        return QString("%1x%2 %3")
            .arg(find<QSpinBox>(width)->value())
            .arg(find<QSpinBox>(height)->value())
            .arg(find<QGroupBox>(group)->isChecked() ? "on" : "off");
    };
    return QStringList{text("userMode1", "userMode1Width", "userMode1Height"),
                       text("userMode2", "userMode2Width", "userMode2Height"),
                       text("userMode3", "userMode3Width", "userMode3Height")}
        .join(", ");
}

QString SimulatedDialog::warning()
{
    const QLabel *label = find<QLabel>("labelDoNotInterrupt");
    return label->isVisible() ? label->text() : QString();
}

QString SimulatedDialog::barText()
{
    const QProgressBar *bar = find<QProgressBar>("updateProgress");
    return bar->isVisible() ? bar->text() : QString();
}

QStringList SimulatedDialog::boxTexts() const
{
    QStringList texts;
    for (const ShownBox &box : boxes.shown) {
        const QString icon = box.icon == QMessageBox::Critical  ? "critical"
                             : box.icon == QMessageBox::Warning ? "warning"
                                                                : "other";
        const QString button = box.buttons == QMessageBox::Ok ? "Ok" : "other";
        texts.append(QStringList{icon, box.title, box.text, button}.join('|'));
        if (box.parent != &dialog || !box.enabled) {
            texts.last() += " that is not the dialog's or cannot be closed";
        }
    }
    return texts;
}

void SimulatedDialog::click(const char *objectName)
{
    QTest::mouseClick(find<QWidget>(objectName), Qt::LeftButton, {}, {12, 12});
}

void SimulatedDialog::clickRow(int row)
{
    QListWidgetItem *item = list()->item(row);
    list()->scrollToItem(item);
    QTest::mouseClick(list()->viewport(), Qt::LeftButton, {},
                      list()->visualItemRect(item).center());
}

void SimulatedDialog::select(const QString &serial)
{
    const int row = rowOf(serial);
    if (row < 0) {
        qFatal("no row of %s in: %s", qPrintable(serial), qPrintable(rows().join("; ")));
    }
    clickRow(row);
}

void SimulatedDialog::clickTab(int tab)
{
    QTabBar *bar = find<QTabWidget>("tabWidget")->tabBar();
    QTest::mouseClick(bar, Qt::LeftButton, {}, bar->tabRect(tab).center());
}

void SimulatedDialog::showTab(int tab)
{
    find<QTabWidget>("tabWidget")->setCurrentIndex(tab);
}

void SimulatedDialog::typePackage(const QString &fileName)
{
    auto *edit = find<QLineEdit>("firmwareLineEdit");
    edit->clear();
    QTest::keyClicks(edit, fileName);
}

void SimulatedDialog::setUserMode(int mode, int width, int height, bool on)
{
    const QString group = QString("userMode%1").arg(mode + 1);
    find<QGroupBox>(qPrintable(group))->setChecked(true); // or the boxes in it could not be edited
    find<QSpinBox>(qPrintable(group + "Width"))->setValue(width);
    find<QSpinBox>(qPrintable(group + "Height"))->setValue(height);
    find<QGroupBox>(qPrintable(group))->setChecked(on);
}

bool SimulatedDialog::waitUntil(const std::function<bool()> &condition)
{
    return QTest::qWaitFor(condition, s_patienceMs);
}

bool SimulatedDialog::openTab(int tab)
{
    clickTab(tab);
    return find<QTabWidget>("tabWidget")->currentIndex() == tab &&
           waitUntil([this] { return isUnlocked(); });
}

bool SimulatedDialog::waitForPollUnderWay(const QString &device)
{
    const int since = simulation::mark();
    return waitUntil([&] {
        return simulation::countEvents(device, "claim", since) >
               simulation::countEvents(device, "close", since);
    });
}
