// The form as it must be, written out by hand: what is inside what and in which order, and each
// property that is not the toolkit's default.

#include "dialogdriver.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QDialog>
#include <QFile>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMetaProperty>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QTabWidget>
#include <QTest>
#include <QTextDocumentFragment>
#include <QToolButton>

#include <algorithm>
#include <iterator>
#include <map>

namespace {

// Containment, and the items of each layout in their order. A grid's items are told by row, then
// column.
const char s_tree[] = R"(
UpdateRepair QDialog
. verticalLayout_4 QVBoxLayout
. . horizontalLayout_3 QHBoxLayout
. . . QuorlinBanner QLabel
. . . spacer 40x20 Expanding Minimum
. . horizontalLayout_2 QHBoxLayout
. . . deviceListLabel QLabel
. . . spacer 300x0 Expanding Minimum
. . . rescanDevicesButton QToolButton
. . devicesList QListWidget
. . tabWidget QTabWidget
. . . tab "Firmware" tabFirmware QWidget
. . . . verticalLayout QVBoxLayout
. . . . . horizontalLayout QHBoxLayout
. . . . . . label QLabel
. . . . . . firmwareLineEdit QLineEdit
. . . . . . firmwareSelectButton QToolButton
. . . . . updateButton QPushButton
. . . . . updateProgress QProgressBar
. . . . . labelDoNotInterrupt QLabel
. . . . . spacer 20x42 Minimum Expanding
. . . tab "Settings" tabSettings QWidget
. . . . verticalLayout_3 QVBoxLayout
. . . . . reenumerateCheckBox QCheckBox
. . . . . keepAspectRatioCheckBox QCheckBox
. . . . . performanceModeCheckBox QCheckBox
. . . . . audioSelectorCheckBox QCheckBox
. . . . . horizontalLayout_4 QHBoxLayout
. . . . . . spacer 40x20 Expanding Minimum
. . . . . . updateSettingsButton QPushButton
. . . tab "User Modes" tabUserMode QWidget
. . . . verticalLayout_2 QVBoxLayout
. . . . . horizontalLayout_7 QHBoxLayout
. . . . . . userMode1 QGroupBox
. . . . . . . gridLayout QGridLayout
. . . . . . . . 0,0 label_3 QLabel
. . . . . . . . 0,1 userMode1Width QSpinBox
. . . . . . . . 1,0 label_4 QLabel
. . . . . . . . 1,1 userMode1Height QSpinBox
. . . . . . userMode2 QGroupBox
. . . . . . . gridLayout_2 QGridLayout
. . . . . . . . 0,0 label_5 QLabel
. . . . . . . . 0,1 userMode2Width QSpinBox
. . . . . . . . 1,0 label_6 QLabel
. . . . . . . . 1,1 userMode2Height QSpinBox
. . . . . . userMode3 QGroupBox
. . . . . . . gridLayout_3 QGridLayout
. . . . . . . . 0,0 label_7 QLabel
. . . . . . . . 0,1 userMode3Width QSpinBox
. . . . . . . . 1,0 label_8 QLabel
. . . . . . . . 1,1 userMode3Height QSpinBox
. . . . . spacer 20x4 Minimum Expanding
. . . . . horizontalLayout_6 QHBoxLayout
. . . . . . spacer 408x20 Expanding Minimum
. . . . . . updateUserModesButton QPushButton
. . frame QFrame
. . . horizontalLayout_5 QHBoxLayout
. . . . label_2 QLabel
. . . . inputSignalLabel QLabel
)";

// The order in which the widgets of each group are made, which is the order of the Tab key.
const std::map<QString, QStringList> s_creation = {
    {"userMode1", {"label_3", "userMode1Width", "label_4", "userMode1Height"}},
    {"userMode2", {"label_5", "userMode2Width", "label_6", "userMode2Height"}},
    {"userMode3", {"userMode3Height", "userMode3Width", "label_8", "label_7"}},
};

// The form's pointers, spacers by their place.
const QStringList s_pointers = {
    "verticalLayout_4",
    "horizontalLayout_3",
    "QuorlinBanner",
    "QSpacerItem",
    "horizontalLayout_2",
    "deviceListLabel",
    "QSpacerItem",
    "rescanDevicesButton",
    "devicesList",
    "tabWidget",
    "tabFirmware",
    "verticalLayout",
    "horizontalLayout",
    "label",
    "firmwareLineEdit",
    "firmwareSelectButton",
    "updateButton",
    "updateProgress",
    "labelDoNotInterrupt",
    "QSpacerItem",
    "tabSettings",
    "verticalLayout_3",
    "reenumerateCheckBox",
    "keepAspectRatioCheckBox",
    "performanceModeCheckBox",
    "audioSelectorCheckBox",
    "horizontalLayout_4",
    "QSpacerItem",
    "updateSettingsButton",
    "tabUserMode",
    "verticalLayout_2",
    "horizontalLayout_7",
    "userMode1",
    "gridLayout",
    "label_3",
    "userMode1Width",
    "label_4",
    "userMode1Height",
    "userMode2",
    "gridLayout_2",
    "label_5",
    "userMode2Width",
    "label_6",
    "userMode2Height",
    "userMode3",
    "gridLayout_3",
    "userMode3Height",
    "userMode3Width",
    "label_8",
    "label_7",
    "QSpacerItem",
    "horizontalLayout_6",
    "QSpacerItem",
    "updateUserModesButton",
    "frame",
    "horizontalLayout_5",
    "label_2",
    "inputSignalLabel",
};

QVariant policy(QSizePolicy::Policy horizontal, QSizePolicy::Policy vertical)
{
    return QVariant::fromValue(QSizePolicy(horizontal, vertical));
}

// The control type is the style's own hint for spacing and comes with the class.
QVariant plain(const QVariant &value)
{
    if (value.userType() != QMetaType::QSizePolicy) {
        return value;
    }
    auto sizePolicy = value.value<QSizePolicy>();
    sizePolicy.setControlType(QSizePolicy::DefaultType);
    return QVariant::fromValue(sizePolicy);
}

struct Property
{
    const char *object;
    const char *name;
    QVariant value;
};

const char s_reenumerateToolTip[] =
    "<html><head/><body><p><span style=\" font-weight:600;\">Use input signal resolution</span>"
    "<br/><br/>When selected, Capso adds the exact resolution of your input signal to the list of "
    "supported output resolutions. This is the only way to enable 1:1 capture for special frame "
    "sizes. "
    "The disadvantage of selecting this mode is that any change in input signal "
    "(programmatic\xC2\xA0or by connecting a different input) causes Capso to renegotiate its "
    "resolution with the application. This can cause an interruption in the captured "
    "stream.\xC2\xA0</p></body></html>";

const char s_keepAspectRatioToolTip[] =
    "<html><head/><body><p><span style=\" font-weight:600;\">Preserve aspect "
    "ratio</span><br/><br/>When "
    "selected, Capso preserves the aspect ratio of your input signal by adding black bars to the "
    "sides "
    "or top and bottom of the frame if the application using the signal requests a frame size with "
    "a "
    "different aspect ratio.</p></body></html>";

const char s_performanceModeToolTip[] =
    "<html><head/><body><p><span style=\" font-weight:600;\">Performance mode</span></p><p>When "
    "selected, Capso enters and exits system suspend mode (i.e. sleep) faster by disabling support "
    "for "
    "the Suspend/U3 USB power state. This means Capso starts working again faster after your "
    "computer "
    "wakes from a sleep state, at the cost of increased power consumption.</p></body></html>";

const char s_styleSheet[] =
    "QLabel {\n"
    "\tfont: 16px;\n"
    "}\n"
    "\n"
    "QLabel#labelDoNotInterrupt {\n"
    "    background-color: red;\n"
    "    border-style: outset;\n"
    "    border-width: 2px;\n"
    "    border-radius: 10px;\n"
    "    border-color: white;\n"
    "    padding: 6px;\n"
    "    color: white;\n"
    "    font: bold\n"
    "}\n"
    "\n"
    "QFrame {\n"
    "   border-style: hidden;\n"
    "}\n"
    "\n"
    "QListView {\n"
    "    show-decoration-selected: 1;\n"
    "}\n"
    "QListView::item:alternate {\n"
    "    background: #EEEEEE;\n"
    "}\n"
    "QListViewA::item:selected {\n"
    "    border: 1px solid #6a6ea9;\n"
    "}\n"
    "\n"
    "QPushButton {\n"
    "    border-style: solid;\n"
    "    border-width: 1px;\n"
    "    border-radius: 4px;\n"
    "    border-color: gray;\n"
    "    font: bold 14px;\n"
    "    min-width: 1em;\n"
    "    padding: 6px;\n"
    "}\n"
    "\n"
    "QPushButton:pressed {\n"
    "\tbackground-color: qlineargradient(x1: 0, y1: 0, x2: 0, y2: 1,\n"
    "                                       stop: 0 #dadbde, stop: 1 #f6f7fa);\n"
    "}\n"
    "\n"
    "QToolButton {\n"
    "    padding: 6px;\n"
    "    font: bold 14px;\n"
    "    min-width: 1em;\n"
    "\tborder: none\n"
    "}\n"
    "\n"
    "QToolButton:pressed {\n"
    "\tbackground-color: qlineargradient(x1: 0, y1: 0, x2: 0, y2: 1,\n"
    "                                       stop: 0 #dadbde, stop: 1 #f6f7fa);\n"
    "}\n"
    "\n"
    "QToolButton:hover {\n"
    "    border-style: solid;\n"
    "    border-width: 1px;\n"
    "    border-radius: 4px;\n"
    "    border-color: gray;\n"
    "}\n"
    "\n"
    "QToolButton.QToolButton#firmwareSelectButton {\n"
    "   padding: 0px;\n"
    "   border-style: hidden;\n"
    "   border-width: 1px;\n"
    "   border-radius: 4px;\n"
    "   border-color: gray;\n"
    "}\n"
    "\n"
    "QToolButton:hover.QToolButton#firmwareSelectButton:hover {\n"
    "   padding: 0px;\n"
    "   border-style: solid;\n"
    "}\n"
    "\n";

// What a screen reader says of a control that has no text of its own, or the same as another.
std::vector<Property> expectedNames()
{
    std::vector<Property> names = {
        {"rescanDevicesButton", "accessibleName", "Refresh device list"},
        {"devicesList", "accessibleName", "Devices"},
        {"tabWidget", "accessibleName", "Device pages"},
        {"firmwareLineEdit", "accessibleName", "Firmware file"},
        {"firmwareSelectButton", "accessibleName", "Select firmware file"},
        {"updateSettingsButton", "accessibleName", "Apply settings"},
        {"updateUserModesButton", "accessibleName", "Apply user modes"},
        {"userMode1Width", "accessibleName", "User mode 1 width"},
        {"userMode1Height", "accessibleName", "User mode 1 height"},
        {"userMode2Width", "accessibleName", "User mode 2 width"},
        {"userMode2Height", "accessibleName", "User mode 2 height"},
        {"userMode3Width", "accessibleName", "User mode 3 width"},
        {"userMode3Height", "accessibleName", "User mode 3 height"},
        {"devicesList", "accessibleDescription",
         "The capture devices that were found. The chosen one is updated and configured."},
        {"firmwareLineEdit", "accessibleDescription",
         "The path of the package (.fw) that UPDATE writes to the chosen device"},
    };
    // Tool tips without their mark-up; the whole texts stand in the test of what is spoken.
    for (const auto &[box, tip] :
         {std::pair{"reenumerateCheckBox", s_reenumerateToolTip},
          std::pair{"keepAspectRatioCheckBox", s_keepAspectRatioToolTip},
          std::pair{"performanceModeCheckBox", s_performanceModeToolTip}}) {
        names.push_back({box, "accessibleDescription",
                         QTextDocumentFragment::fromHtml(QString::fromUtf8(tip)).toPlainText()});
    }
    return names;
}

void addUserModes(std::vector<Property> &properties)
{
    properties.push_back({"userMode1", "title", "User mode 1"});
    properties.push_back({"userMode2", "title", "User mode 2"});
    properties.push_back({"userMode3", "title", "User mode 3"});
    for (const char *label : {"label_3", "label_5", "label_7"}) {
        properties.push_back({label, "text", "Width:"});
    }
    for (const char *label : {"label_4", "label_6", "label_8"}) {
        properties.push_back({label, "text", "Height:"});
    }
    for (const char *group : {"userMode1", "userMode2", "userMode3"}) {
        properties.push_back({group, "checkable", true});
        properties.push_back({group, "checked", false});
    }
    for (const char *box : {"userMode1Width", "userMode1Height", "userMode2Width",
                            "userMode2Height", "userMode3Width", "userMode3Height"}) {
        properties.push_back({box, "frame", true});
        properties.push_back({box, "buttonSymbols", int(QAbstractSpinBox::PlusMinus)});
        properties.push_back({box, "accelerated", true});
        properties.push_back({box, "minimum", 0});
        properties.push_back({box, "maximum", 65535});
    }
}

// Every property that is not the default of its class. Icons and pixmaps have tests of their own.
std::vector<Property> expectedProperties()
{
    const int centred = Qt::AlignHCenter | Qt::AlignVCenter;
    std::vector<Property> properties = {
        {"UpdateRepair", "windowTitle", "Capso Config"},
        {"UpdateRepair", "size", QSize(543, 582)},
        {"UpdateRepair", "sizePolicy", policy(QSizePolicy::Preferred, QSizePolicy::Preferred)},
        {"UpdateRepair", "styleSheet", QString::fromUtf8(s_styleSheet)},
        {"QuorlinBanner", "scaledContents", true},
        {"QuorlinBanner", "text", QString()},
        {"deviceListLabel", "sizePolicy", policy(QSizePolicy::Preferred, QSizePolicy::Minimum)},
        {"deviceListLabel", "text", "Devices:"},
        {"rescanDevicesButton", "sizePolicy", policy(QSizePolicy::Minimum, QSizePolicy::Minimum)},
        {"rescanDevicesButton", "minimumSize", QSize(29, 0)},
        {"rescanDevicesButton", "iconSize", QSize(24, 24)},
        {"rescanDevicesButton", "autoRaise", true},
        {"rescanDevicesButton", "toolTip", "Refresh device list"},
        {"tabWidget", "currentIndex", 0},
        {"label", "text", "Firmware:"},
        {"firmwareLineEdit", "sizePolicy", policy(QSizePolicy::Expanding, QSizePolicy::Fixed)},
        {"firmwareSelectButton", "sizePolicy", policy(QSizePolicy::Minimum, QSizePolicy::Fixed)},
        {"firmwareSelectButton", "baseSize", QSize(16, 16)},
        {"firmwareSelectButton", "iconSize", QSize(32, 32)},
        {"firmwareSelectButton", "text", "Select"},
        {"firmwareSelectButton", "toolTip", "Browse for firmware file"},
        {"updateButton", "iconSize", QSize(24, 24)},
        {"updateButton", "text", "UPDATE"},
        {"updateButton", "toolTip", "Update firmware"},
        {"updateProgress", "value", 0},
        {"updateProgress", "alignment", centred},
        {"labelDoNotInterrupt", "alignment", centred},
        {"labelDoNotInterrupt", "text", QString()},
        {"reenumerateCheckBox", "text", "Use input signal resolution"},
        {"reenumerateCheckBox", "toolTip", QString::fromUtf8(s_reenumerateToolTip)},
        {"keepAspectRatioCheckBox", "text", "Preserve aspect ratio"},
        {"keepAspectRatioCheckBox", "toolTip", QString::fromUtf8(s_keepAspectRatioToolTip)},
        {"performanceModeCheckBox", "text", "Performance mode"},
        {"performanceModeCheckBox", "toolTip", QString::fromUtf8(s_performanceModeToolTip)},
        {"audioSelectorCheckBox", "text", "Audio selector for multichannel inputs"},
        {"audioSelectorCheckBox", "toolTip", QString()},
        {"updateSettingsButton", "maximumSize", QSize(16777215, 16777215)},
        {"updateSettingsButton", "text", "Apply"},
        {"updateUserModesButton", "text", "Apply"},
        {"frame", "frameShape", int(QFrame::StyledPanel)},
        {"frame", "frameShadow", int(QFrame::Raised)},
        {"label_2", "sizePolicy", policy(QSizePolicy::Minimum, QSizePolicy::Preferred)},
        {"label_2", "text", "Input signal: "},
        {"inputSignalLabel", "sizePolicy", policy(QSizePolicy::Expanding, QSizePolicy::Preferred)},
        // Filled as soon as the first scan starts.
        {"inputSignalLabel", "text", "device not selected"},
    };
    addUserModes(properties);
    for (const Property &name : expectedNames()) {
        properties.push_back(name);
    }
    return properties;
}

void describe(const QWidget *widget, const QString &indent, const QString &prefix,
              QStringList &lines);

void describe(const QLayout *layout, const QString &indent, const QString &prefix,
              QStringList &lines)
{
    lines += indent + prefix + layout->objectName() + u' ' +
             QLatin1String(layout->metaObject()->className());
    const QString inner = indent + QStringLiteral(". ");
    const auto *grid = qobject_cast<const QGridLayout *>(layout);
    std::map<std::pair<int, int>, int> cells; // of a grid: row and column to index
    for (int i = 0; i < layout->count(); ++i) {
        int row = i;
        int column = 0;
        int rowSpan = 1;
        int columnSpan = 1;
        if (grid) {
            grid->getItemPosition(i, &row, &column, &rowSpan, &columnSpan);
        }
        if (rowSpan != 1 || columnSpan != 1 || cells.count({row, column}) != 0) {
            lines += QStringLiteral("items that span or share cells");
        }
        cells[{row, column}] = i;
    }
    for (const auto &[cell, i] : cells) {
        const QString place =
            grid ? QStringLiteral("%1,%2 ").arg(cell.first).arg(cell.second) : QString();
        QLayoutItem *item = layout->itemAt(i);
        if (const auto *widget = item->widget()) {
            describe(widget, inner, place, lines);
        } else if (const auto *sub = item->layout()) {
            describe(sub, inner, place, lines);
        } else {
            const QSpacerItem *spacer = item->spacerItem();
            const auto name = [](QSizePolicy::Policy value) {
                return QString::fromLatin1(
                    QMetaEnum::fromType<QSizePolicy::Policy>().valueToKey(value));
            };
            lines += QStringLiteral("%1spacer %2x%3 %4 %5")
                         .arg(inner)
                         .arg(spacer->sizeHint().width())
                         .arg(spacer->sizeHint().height())
                         .arg(name(spacer->sizePolicy().horizontalPolicy()),
                              name(spacer->sizePolicy().verticalPolicy()));
        }
    }
}

void describe(const QWidget *widget, const QString &indent, const QString &prefix,
              QStringList &lines)
{
    const QString inner = indent + QStringLiteral(". ");
    const char *className = widget->metaObject()->className();
    lines += indent + prefix + widget->objectName() + u' ' +
             QLatin1String(widget->isWindow() ? "QDialog" : className);
    if (const auto *tabs = qobject_cast<const QTabWidget *>(widget)) {
        for (int i = 0; i < tabs->count(); ++i) {
            describe(tabs->widget(i), inner, QStringLiteral("tab \"%1\" ").arg(tabs->tabText(i)),
                     lines);
        }
    } else if (widget->layout()) {
        describe(widget->layout(), inner, QString(), lines);
    }
}

// The form's objects, by the names in the tree.
QStringList formObjects(bool widgets)
{
    QStringList names;
    const auto lines = QString::fromLatin1(s_tree).split(u'\n', Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        const QStringList words = line.split(u' ');
        const bool isLayout = words.last().endsWith(QLatin1String("Layout"));
        if (!line.contains(QLatin1String("spacer ")) && isLayout != widgets) {
            names += words.at(words.size() - 2);
        }
    }
    return names;
}

// A widget of the class as the toolkit makes it.
QWidget *freshWidget(const QString &className, QWidget *parent)
{
    static const std::map<QString, QWidget *(*)(QWidget *)> s_makers = {
        {"UpdateRepair", [](QWidget *p) -> QWidget * { return new QDialog(p); }},
        {"QWidget", [](QWidget *p) -> QWidget * { return new QWidget(p); }},
        {"QLabel", [](QWidget *p) -> QWidget * { return new QLabel(p); }},
        {"QToolButton", [](QWidget *p) -> QWidget * { return new QToolButton(p); }},
        {"QListWidget", [](QWidget *p) -> QWidget * { return new QListWidget(p); }},
        {"QTabWidget", [](QWidget *p) -> QWidget * { return new QTabWidget(p); }},
        {"QLineEdit", [](QWidget *p) -> QWidget * { return new QLineEdit(p); }},
        {"QPushButton", [](QWidget *p) -> QWidget * { return new QPushButton(p); }},
        {"QProgressBar", [](QWidget *p) -> QWidget * { return new QProgressBar(p); }},
        {"QCheckBox", [](QWidget *p) -> QWidget * { return new QCheckBox(p); }},
        {"QGroupBox",
         [](QWidget *p) -> QWidget * {
             auto *box = new QGroupBox(p);
             box->setCheckable(true); // the keyboard reaches a box because of it
             return box;
         }},
        {"QSpinBox", [](QWidget *p) -> QWidget * { return new QSpinBox(p); }},
        {"QFrame", [](QWidget *p) -> QWidget * { return new QFrame(p); }},
    };
    return s_makers.at(className)(parent);
}

// What depends on the place of a widget, on the screen or on the state of the program.
bool dependsOnSurroundings(const QString &property)
{
    static const QStringList s_names = {"objectName",
                                        "geometry",
                                        "frameGeometry",
                                        "normalGeometry",
                                        "x",
                                        "y",
                                        "pos",
                                        "frameSize",
                                        "size",
                                        "width",
                                        "height",
                                        "rect",
                                        "childrenRect",
                                        "childrenRegion",
                                        "palette",
                                        "font",
                                        "cursor",
                                        "sizeHint",
                                        "minimumSizeHint",
                                        "visible",
                                        "enabled",
                                        "focus",
                                        "isActiveWindow",
                                        "minimumWidth",
                                        "minimumHeight",
                                        "maximumWidth",
                                        "maximumHeight",
                                        "sizeIncrement",
                                        "windowModified",
                                        "locale",
                                        "inputMethodHints",
                                        "frameRect",
                                        "frameWidth",
                                        "frameStyle",
                                        "lineWidth",
                                        "midLineWidth",
                                        "icon",
                                        "windowIcon",
                                        "pixmap",
                                        "windowOpacity",
                                        "windowFlags",
                                        "hasVisibleFocus",
                                        "count",
                                        "acceptableInput",
                                        "displayText",
                                        "cleanText"};
    return s_names.contains(property);
}

} // namespace

class TestForm : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }
    void treeIsAsDesigned();
    void widgetsAreMadeInTheirOrder();
    void pointersAreInTheirOrder();
    void propertiesAreAsDesigned();
    void everyOtherPropertyIsTheDefault();
    void everyOtherLayoutPropertyIsTheDefault();
    void stretchesAreZero();
    void styleSheetHasItsTabsAndEndsInTwoLineBreaks();
    void picturesComeFromTheCollection();
    void slotsAreInTheirOrder();
    void frontObjectsAreInTheirOrder();
    void stateAfterConstruction();
};

void TestForm::treeIsAsDesigned()
{
    const UpdateRepair dialog;
    QStringList lines;
    describe(&dialog, QString(), QString(), lines);
    const auto expected = QString::fromLatin1(s_tree).split(u'\n', Qt::SkipEmptyParts);
    for (int i = 0; i < qMin(lines.size(), expected.size()); ++i) {
        QCOMPARE(lines.at(i), expected.at(i));
    }
    QCOMPARE(lines.size(), expected.size());

    // No widget beside those of the tree, but for the parts that the toolkit's widgets are made of.
    static const QRegularExpression s_part(QStringLiteral("^(qt_.*|Scroll(Left|Right)Button|)$"));
    const QStringList known = formObjects(true);
    for (const QWidget *widget : dialog.findChildren<QWidget *>()) {
        QVERIFY2(known.contains(widget->objectName()) ||
                     s_part.match(widget->objectName()).hasMatch(),
                 qPrintable(widget->objectName()));
    }
}

void TestForm::widgetsAreMadeInTheirOrder()
{
    const UpdateRepair dialog;
    for (const auto &[group, expected] : s_creation) {
        QStringList made;
        for (const QWidget *widget : dialog.findChild<QGroupBox *>(group)->findChildren<QWidget *>(
                 QRegularExpression("^(label_|userMode)"), Qt::FindDirectChildrenOnly)) {
            made += widget->objectName();
        }
        QCOMPARE(made, expected);
    }
}

void TestForm::pointersAreInTheirOrder()
{
    QFile header(QStringLiteral(CAPSO_FORM_HEADER));
    QVERIFY2(header.open(QIODevice::ReadOnly), CAPSO_FORM_HEADER);
    static const QRegularExpression s_pointer(QStringLiteral("^    (Q\\w+) \\*(\\w+);$"),
                                              QRegularExpression::MultilineOption);
    QStringList pointers;
    auto matches = s_pointer.globalMatch(QString::fromUtf8(header.readAll()));
    while (matches.hasNext()) {
        const auto match = matches.next();
        const bool isSpacer = match.captured(1) == QLatin1String("QSpacerItem");
        pointers += match.captured(isSpacer ? 1 : 2);
    }
    QCOMPARE(pointers, s_pointers);
}

void TestForm::propertiesAreAsDesigned()
{
    UpdateRepair dialog;
    for (const Property &expected : expectedProperties()) {
        const QObject *object = dialog.objectName() == QLatin1String(expected.object)
                                    ? &dialog
                                    : dialog.findChild<QObject *>(QLatin1String(expected.object));
        QVERIFY2(object, expected.object);
        const QVariant value = plain(object->property(expected.name));
        QVERIFY2(value.isValid(), expected.name);
        const bool isEnum = value.userType() >= QMetaType::User;
        const bool equal =
            isEnum ? value.toInt() == expected.value.toInt() : value == expected.value;
        if (!equal) {
            qWarning() << expected.object << expected.name << value << "instead of"
                       << expected.value;
        }
        QVERIFY(equal);
    }
}

void TestForm::everyOtherPropertyIsTheDefault()
{
    UpdateRepair dialog;
    QDialog parent;
    const std::vector<Property> listed = expectedProperties();
    int compared = 0;
    for (const QString &name : formObjects(true)) {
        const QWidget *widget =
            name == dialog.objectName() ? &dialog : dialog.findChild<QWidget *>(name);
        QVERIFY2(widget, qPrintable(name));
        const QWidget *fresh =
            freshWidget(widget->metaObject()->className(), widget == &dialog ? nullptr : &parent);
        const QMetaObject *meta = fresh->metaObject();
        for (int i = 0; i < meta->propertyCount(); ++i) {
            const QString property = QString::fromLatin1(meta->property(i).name());
            const bool isListed = std::any_of(listed.begin(), listed.end(), [&](const Property &p) {
                return name == QLatin1String(p.object) && property == QLatin1String(p.name);
            });
            // What the style sheet makes of its "min-width" and ":hover" for buttons.
            const bool isStyled = qobject_cast<const QAbstractButton *>(widget) &&
                                  (property == QLatin1String("minimumSize") ||
                                   property == QLatin1String("mouseTracking"));
            if (isListed || isStyled || dependsOnSurroundings(property) ||
                !meta->property(i).isWritable()) {
                continue;
            }
            const QVariant value = plain(widget->property(meta->property(i).name()));
            const QVariant byDefault = plain(meta->property(i).read(fresh));
            if (value != byDefault) {
                qWarning() << name << property << value << "instead of" << byDefault;
            }
            QCOMPARE(value, byDefault);
            ++compared;
        }
    }
    QVERIFY(compared > 1000);
}

void TestForm::everyOtherLayoutPropertyIsTheDefault()
{
    const UpdateRepair dialog;
    for (const QString &name : formObjects(false)) {
        const auto *layout = dialog.findChild<QLayout *>(name);
        QVERIFY2(layout, qPrintable(name));
        QWidget host;
        QWidget inner(&host);
        QLayout *fresh =
            qobject_cast<const QGridLayout *>(layout)   ? static_cast<QLayout *>(new QGridLayout)
            : qobject_cast<const QVBoxLayout *>(layout) ? static_cast<QLayout *>(new QVBoxLayout)
                                                        : new QHBoxLayout;
        if (layout->parentWidget() && layout->parentWidget()->layout() == layout) {
            (layout->parentWidget()->isWindow() ? host : inner).setLayout(fresh);
        } else {
            (new QVBoxLayout(&host))->addLayout(fresh);
        }
        QCOMPARE(layout->contentsMargins(), name == QLatin1String("horizontalLayout_5")
                                                ? QMargins(0, 0, 0, 0)
                                                : fresh->contentsMargins());
        QCOMPARE(layout->spacing(),
                 name == QLatin1String("horizontalLayout") ? 2 : fresh->spacing());
        QCOMPARE(layout->sizeConstraint(), fresh->sizeConstraint());
        QCOMPARE(layout->alignment(), fresh->alignment());
        for (int i = 0; i < layout->count(); ++i) {
            QCOMPARE(layout->itemAt(i)->alignment(), Qt::Alignment());
        }
    }
}

void TestForm::stretchesAreZero()
{
    const UpdateRepair dialog;
    for (const QWidget *widget : dialog.findChildren<QWidget *>()) {
        QCOMPARE(widget->sizePolicy().horizontalStretch(), 0);
        QCOMPARE(widget->sizePolicy().verticalStretch(), 0);
    }
    for (const QBoxLayout *layout : dialog.findChildren<QBoxLayout *>()) {
        for (int i = 0; i < layout->count(); ++i) {
            QCOMPARE(layout->stretch(i), 0);
        }
    }
}

void TestForm::styleSheetHasItsTabsAndEndsInTwoLineBreaks()
{
    const UpdateRepair dialog;
    const QString sheet = dialog.styleSheet();
    QCOMPARE(sheet, QString::fromUtf8(s_styleSheet));
    QCOMPARE(sheet.count(u'\t'), 4);
    QVERIFY(sheet.endsWith(QLatin1String("}\n\n")));
    QVERIFY(!sheet.endsWith(QLatin1String("\n\n\n")));
}

void TestForm::picturesComeFromTheCollection()
{
    const UpdateRepair dialog;
    const auto iconImage = [](const QIcon &icon, int size) {
        return icon.pixmap(QSize(size, size)).toImage();
    };
    const auto fileImage = [&](const char *path, int size) {
        return iconImage(QIcon(QLatin1String(path)), size);
    };
    QVERIFY(!fileImage(":/images/appicon.png", 32).isNull());
    QCOMPARE(iconImage(dialog.windowIcon(), 32), fileImage(":/images/appicon.png", 32));
    QVERIFY(!fileImage(":/images/reload.png", 24).isNull());
    QCOMPARE(iconImage(dialog.findChild<QToolButton *>("rescanDevicesButton")->icon(), 24),
             fileImage(":/images/reload.png", 24));
    QVERIFY(!fileImage(":/images/folder.png", 32).isNull());
    QCOMPARE(iconImage(dialog.findChild<QToolButton *>("firmwareSelectButton")->icon(), 32),
             fileImage(":/images/folder.png", 32));
    const QPixmap banner = dialog.findChild<QLabel *>("QuorlinBanner")->pixmap(Qt::ReturnByValue);
    QVERIFY(!banner.isNull());
    QCOMPARE(banner.toImage(), QPixmap(QStringLiteral(":/images/banner.png")).toImage());
    // A widget that should have no picture has none.
    QVERIFY(dialog.findChild<QPushButton *>("updateButton")->icon().isNull());
}

void TestForm::slotsAreInTheirOrder()
{
    const QList<QByteArray> expected = {
        "on_firmwareSelectButton_clicked()",
        "on_rescanDevicesButton_clicked()",
        "on_updateButton_clicked()",
        "on_tabWidget_currentChanged(int)",
        "on_updateSettingsButton_clicked()",
        "on_devicesList_itemSelectionChanged()",
        "on_firmwareLineEdit_textChanged()",
        "on_updateUserModesButton_clicked()",
        "onNewDevice(DeviceDescription)",
        "onScanComplete()",
        "onScanError(QString)",
        "onUpdateProgress(int)",
        "onUpdateComplete()",
        "onUpdateError(QString)",
        "onGetDeviceFlagsComplete(uint8_t,QSharedPointer<uint8_t>,uint16_t)",
        "onSetDeviceFlagsComplete(uint8_t)",
        "onDeviceFlagsError(uint8_t,QString)",
        "onGetDeviceInputStatusComplete(uint8_t,QSharedPointer<uint8_t>,uint16_t)",
        "onGetUserModeComplete(uint8_t,QSharedPointer<uint8_t>,uint16_t)",
        "onSetUserModeComplete(uint8_t)",
        "onUserModeError(uint8_t,QString)",
        "onInputStatusTimer()",
    };
    QList<QByteArray> found;
    const QMetaObject &meta = UpdateRepair::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        QCOMPARE(meta.method(i).methodType(), QMetaMethod::Slot);
        QCOMPARE(meta.method(i).access(), QMetaMethod::Private);
        found += meta.method(i).methodSignature();
    }
    QCOMPARE(found, expected);
}

void TestForm::frontObjectsAreInTheirOrder()
{
    const UpdateRepair dialog;
    QStringList found;
    for (QObject *child : dialog.children()) {
        if (const auto *action = qobject_cast<ConfigDeviceAction *>(child)) {
            QString accepted;
            for (int request = 0; request < 256; ++request) {
                if (action->filterRequest(static_cast<uint8_t>(request))) {
                    accepted += QStringLiteral(" %1").arg(request);
                }
            }
            found += QStringLiteral("action") + accepted;
        } else if (!child->isWidgetType() && !qobject_cast<QLayout *>(child)) {
            found += QString::fromLatin1(child->metaObject()->className());
        }
    }
    QCOMPARE(found, (QStringList{"DeviceScanner", "UpdateTask", "ConfigDeviceTask",
                                 "action 226 227", "action 0 178", "action 179"}));
}

void TestForm::stateAfterConstruction()
{
    const UpdateRepair dialog;
    QVERIFY(dialog.isEnabled());
    QVERIFY(!dialog.findChild<QTabWidget *>("tabWidget")->isEnabled());
    QVERIFY(dialog.findChild<QWidget *>("devicesList")->isEnabled());
    QVERIFY(dialog.findChild<QWidget *>("rescanDevicesButton")->isEnabled());
    QVERIFY(dialog.findChild<QWidget *>("updateProgress")->isHidden());
    QVERIFY(dialog.findChild<QWidget *>("labelDoNotInterrupt")->isHidden());
    QCOMPARE(dialog.findChild<QListWidget *>("devicesList")->count(), 0);
    // Enabled in themselves; the tab widget around them is not.
    const auto *page = dialog.findChild<QWidget *>("tabUserMode");
    QVERIFY(page->isEnabledTo(dialog.findChild<QTabWidget *>("tabWidget")));
    const auto *update = dialog.findChild<QWidget *>("updateButton");
    QVERIFY(update->isEnabledTo(dialog.findChild<QTabWidget *>("tabWidget")));
}

QTEST_MAIN(TestForm)
#include "tst_form.moc"
