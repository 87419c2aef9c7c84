#include "scriptedlibusb.h"

#include <QLibrary>
#include <QtTest>

// The scripted libusb must say what the real one says, or tests of messages prove nothing.
class TestScriptedLibusb : public QObject
{
    Q_OBJECT

private slots:
    void namesAreThoseOfTheInstalledLibrary_data();
    void namesAreThoseOfTheInstalledLibrary();
    void textsCanBeNull();
};

void TestScriptedLibusb::namesAreThoseOfTheInstalledLibrary_data()
{
    QTest::addColumn<int>("code");
    for (int code = LIBUSB_ERROR_NOT_SUPPORTED; code <= LIBUSB_ERROR_IO; ++code) {
        QTest::addRow("%d", code) << code;
    }
    QTest::newRow("other") << int(LIBUSB_ERROR_OTHER);
}

void TestScriptedLibusb::namesAreThoseOfTheInstalledLibrary()
{
    QFETCH(int, code);
    QLibrary library(QStringLiteral(CAPSO_LIBUSB));
    QVERIFY2(library.load(), qPrintable(library.errorString()));
    using Text = const char *(*)(int);
    const Text errorName = reinterpret_cast<Text>(library.resolve("libusb_error_name"));
    const Text sentence = reinterpret_cast<Text>(library.resolve("libusb_strerror"));
    QVERIFY(errorName != nullptr && errorName != libusb_error_name);
    QVERIFY(sentence != nullptr && sentence != libusb_strerror);

    const ScriptedUsb bus;
    QCOMPARE(libusb_error_name(code), errorName(code));
    // The sentences are worded anew from time to time, but no code is ever without one.
    QVERIFY(qstrlen(libusb_strerror(code)) > 0);
    QVERIFY(qstrlen(sentence(code)) > 0);
    library.unload();
}

void TestScriptedLibusb::textsCanBeNull()
{
    ScriptedUsb bus;
    bus.giveNullTexts();
    QVERIFY(libusb_error_name(-1) == nullptr);
    QVERIFY(libusb_strerror(-1) == nullptr);
}

QTEST_GUILESS_MAIN(TestScriptedLibusb)
#include "tst_scriptedlibusb.moc"
