// What the program has registered when it makes its dialog, with nothing else in the process that
// could have.

#include "scriptedlibusb.h"
#include "updaterepair.h"

#include <QMetaType>
#include <QTest>
#include <QTimer>

int capsoMain(int argc, char **argv);

static QString s_description;
static int s_byte = QMetaType::UnknownType;

UpdateRepair::UpdateRepair()
{
    const int description = QMetaType::type("DeviceDescription");
    s_description = QString::fromLatin1(QMetaType::typeName(description));
    s_byte = QMetaType::type("uint8_t");
    QTimer::singleShot(0, this, [this] { close(); });
}

class TestMetaTypes : public QObject
{
    Q_OBJECT

private slots:
    void areRegisteredBeforeTheDialogIsMade();
};

void TestMetaTypes::areRegisteredBeforeTheDialogIsMade()
{
    QCOMPARE(QMetaType::type("DeviceDescription"), int(QMetaType::UnknownType));
    QCOMPARE(QMetaType::type("uint8_t"), int(QMetaType::UnknownType));
    ScriptedUsb usb;
    char name[] = "capso-config";
    char *arguments[] = {name, nullptr};
    QCOMPARE(capsoMain(1, arguments), 0);

    QCOMPARE(s_description, QString("DeviceDescription"));
    QCOMPARE(s_byte, int(QMetaType::UChar));
}

// The program makes its own application object.
QTEST_APPLESS_MAIN(TestMetaTypes)

#include "tst_metatypes.moc"
