#include "scriptedlibusb.h"

#include <QtTest>

#include <dlfcn.h>

// The scripted libusb must say what the real one says, or tests of messages prove nothing.
class TestScriptedLibusb : public QObject
{
    Q_OBJECT

private slots:
    void textsAreThoseOfTheInstalledLibrary_data();
    void textsAreThoseOfTheInstalledLibrary();
    void textsCanBeNull();
};

void TestScriptedLibusb::textsAreThoseOfTheInstalledLibrary_data()
{
    QTest::addColumn<int>("code");
    for (int code = -14; code <= 0; ++code)
        QTest::addRow("%d", code) << code;
    QTest::newRow("other") << -99;
    QTest::newRow("unheard of") << -1000;
}

void TestScriptedLibusb::textsAreThoseOfTheInstalledLibrary()
{
    QFETCH(int, code);
    void *library = dlopen("libusb-1.0.so.0", RTLD_NOW | RTLD_LOCAL);
    QVERIFY2(library != nullptr, dlerror());
    using Text = const char *(*)(int);
    const Text errorName = reinterpret_cast<Text>(dlsym(library, "libusb_error_name"));
    const Text sentence = reinterpret_cast<Text>(dlsym(library, "libusb_strerror"));
    QVERIFY(errorName != nullptr && errorName != libusb_error_name);
    QVERIFY(sentence != nullptr && sentence != libusb_strerror);

    const ScriptedUsb bus;
    QCOMPARE(libusb_error_name(code), errorName(code));
    QCOMPARE(libusb_strerror(code), sentence(code));
    dlclose(library);
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
