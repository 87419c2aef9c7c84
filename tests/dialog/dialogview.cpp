#include "dialogview.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QProgressBar>
#include <QSpinBox>

namespace {

QString nameOf(const QCheckBox *box)
{
    return box->objectName().remove("CheckBox");
}

QString groupOf(int mode)
{
    return QString("userMode%1").arg(mode + 1);
}

} // namespace

QStringList DialogView::rows()
{
    QStringList texts;
    for (int row = 0; row < list()->count(); ++row) {
        texts.append(list()->item(row)->text());
    }
    return texts;
}

QString DialogView::statusLine()
{
    return find<QLabel>("inputSignalLabel")->text();
}

QString DialogView::warning()
{
    const QLabel *label = find<QLabel>("labelDoNotInterrupt");
    return label->isVisible() ? label->text() : QString();
}

QString DialogView::barText()
{
    const QProgressBar *bar = find<QProgressBar>("updateProgress");
    return bar->isVisible() ? bar->text() : QString();
}

QStringList DialogView::boxTexts() const
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

QString DialogView::checkBoxes()
{
    QStringList checked;
    for (const QCheckBox *box : find<QWidget>("tabSettings")->findChildren<QCheckBox *>()) {
        if (box->isChecked()) {
            checked.append(nameOf(box));
        }
    }
    return checked.join(' ');
}

void DialogView::setCheckBoxes(const QString &names)
{
    QStringList wanted = names.split(' ', Qt::SkipEmptyParts);
    for (QCheckBox *box : find<QWidget>("tabSettings")->findChildren<QCheckBox *>()) {
        box->setChecked(wanted.removeAll(nameOf(box)) > 0);
    }
    if (!wanted.isEmpty()) {
        qFatal("no check box %s", qPrintable(wanted.first()));
    }
}

QString DialogView::pageTexts()
{
    QStringList texts;
    for (const QLabel *label : tabs()->currentWidget()->findChildren<QLabel *>()) {
        texts.append(label->text());
    }
    return texts.join('|');
}

QString DialogView::userModes()
{
    QStringList modes;
    for (int mode = 0; mode < 3; ++mode) {
        const QString group = groupOf(mode);
        modes.append(QString("%1x%2 %3")
                         .arg(find<QSpinBox>(qPrintable(group + "Width"))->value())
                         .arg(find<QSpinBox>(qPrintable(group + "Height"))->value())
                         .arg(find<QGroupBox>(qPrintable(group))->isChecked() ? "on" : "off"));
    }
    return modes.join(", ");
}

void DialogView::setUserMode(int mode, int width, int height, bool on)
{
    const QString group = groupOf(mode);
    find<QGroupBox>(qPrintable(group))->setChecked(true); // or the boxes in it could not be edited
    find<QSpinBox>(qPrintable(group + "Width"))->setValue(width);
    find<QSpinBox>(qPrintable(group + "Height"))->setValue(height);
    find<QGroupBox>(qPrintable(group))->setChecked(on);
}
