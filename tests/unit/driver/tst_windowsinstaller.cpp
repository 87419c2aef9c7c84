#include "capturedoutput.h"
#include "platforminstaller.h"
#include "scriptedwdi.h"

#include <QtTest>

#include <windows.h>

struct FakeLibrary
{
};

namespace {

FakeLibrary s_library;
bool s_isPresent = true;
QByteArray s_missingFunction;
QList<QByteArray> s_calls;

template<typename Function> FARPROC erased(Function function)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void *>(function));
}

struct Outcome
{
    int result;
    QByteArray printed;
};

Outcome install()
{
    s_calls.clear();
    CapturedStdout capture;
    const int result = usb::install_driver(0x04b4, 0x00f3, 3, true, nullptr);
    return {result, QByteArray::fromStdString(capture.finish())};
}

// Beside the program and nowhere else; what libwdi.dll needs in turn comes from its own folder
// (0x100) or the system's (0x800).
const QList<QByteArray> s_opening = {"LoadLibraryEx 'C:\\Capso Config\\libwdi.dll' 0x900"};

} // namespace

DWORD GetModuleFileNameW(HMODULE library, wchar_t *path, DWORD size)
{
    const std::wstring program = library ? L"C:\\other.dll" : L"C:\\Capso Config\\capso-config.exe";
    if (size < program.size() + 1) {
        return 0;
    }
    program.copy(path, program.size());
    return static_cast<DWORD>(program.size());
}

HMODULE LoadLibraryExW(const wchar_t *path, void *file, DWORD flags)
{
    s_calls << "LoadLibraryEx '" + QString::fromWCharArray(path).toUtf8() + "' 0x" +
                   QByteArray::number(flags, 16) + (file ? " file" : "");
    return s_isPresent ? &s_library : nullptr;
}

FARPROC GetProcAddress(HMODULE library, const char *name)
{
    if (library != &s_library || name == s_missingFunction) {
        return nullptr;
    }
    const usb::wdi::Functions wdi = scriptedwdi::functions();
    const QHash<QByteArray, FARPROC> exports = {
        {"wdi_strerror", erased(wdi.strError)},
        {"wdi_set_log_level", erased(wdi.setLogLevel)},
        {"wdi_create_list", erased(wdi.createList)},
        {"wdi_destroy_list", erased(wdi.destroyList)},
        {"wdi_prepare_driver", erased(wdi.prepareDriver)},
        {"wdi_install_driver", erased(wdi.installDriver)},
    };
    return exports.value(name);
}

BOOL FreeLibrary(HMODULE library)
{
    s_calls << (library == &s_library ? "FreeLibrary" : "FreeLibrary of another");
    // Nothing of libwdi's may be called from here on.
    s_calls << scriptedwdi::calls().value(0, "no call of libwdi");
    scriptedwdi::begin({});
    return 1;
}

DWORD GetLastError()
{
    return 126;
}

class TestWindowsInstaller : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void platformHasAnInstaller();
    void withoutTheLibraryOneLineSaysSo();
    void incompleteLibraryIsNotUsed_data();
    void incompleteLibraryIsNotUsed();
    void libraryDoesTheInstallation();
    void resultIsThatOfTheInstallation();
    void libraryMayComeLater();
};

void TestWindowsInstaller::init()
{
    s_isPresent = true;
    s_missingFunction.clear();
    scriptedwdi::begin({});
}

void TestWindowsInstaller::platformHasAnInstaller()
{
    QVERIFY(usb::has_driver_installer());
}

void TestWindowsInstaller::withoutTheLibraryOneLineSaysSo()
{
    s_isPresent = false;
    const Outcome outcome = install();
    QCOMPARE(outcome.result, -1);
    QCOMPARE(outcome.printed, QByteArray("Can't load libwdi.dll: error 126\n"));
    QCOMPARE(s_calls, s_opening);
    QCOMPARE(scriptedwdi::calls(), QList<QByteArray>());
}

void TestWindowsInstaller::incompleteLibraryIsNotUsed_data()
{
    QTest::addColumn<QByteArray>("function");
    for (const char *function : {"wdi_strerror", "wdi_set_log_level", "wdi_create_list",
                                 "wdi_destroy_list", "wdi_prepare_driver", "wdi_install_driver"}) {
        QTest::newRow(function) << QByteArray(function);
    }
}

void TestWindowsInstaller::incompleteLibraryIsNotUsed()
{
    QFETCH(QByteArray, function);
    s_missingFunction = function;
    const Outcome outcome = install();
    QCOMPARE(outcome.result, -1);
    QCOMPARE(outcome.printed, QByteArray("libwdi.dll has no " + function + "\n"));
    QCOMPARE(s_calls, s_opening + QList<QByteArray>({"FreeLibrary", "no call of libwdi"}));
}

void TestWindowsInstaller::libraryDoesTheInstallation()
{
    scriptedwdi::Script script;
    script.listings = {{0, {{0x04b4, 0x00f3, 3, "Interface 3", "ID3", "HW&MI_03"}}},
                       {0, {{0x04b4, 0x00f3, 3, "Interface 3", "ID3", "HW&MI_03"}}}};
    script.installResults = {0};
    scriptedwdi::begin(script);
    const Outcome outcome = install();
    QCOMPARE(outcome.printed, QByteArray("Set device desc: Interface 3\n"
                                         "WDI driver prepare: Success\n"
                                         "Installing driver(s)...\n"
                                         "Found device: HW&MI_03: Install status: Success (0)\n"));
    QCOMPARE(outcome.result, 0);
    QCOMPARE(s_calls, s_opening + QList<QByteArray>({"FreeLibrary", "set_log_level 0"}));
    QCOMPARE(scriptedwdi::calls(), QList<QByteArray>());
}

void TestWindowsInstaller::resultIsThatOfTheInstallation()
{
    scriptedwdi::Script script;
    script.listings = {{-1, {}}};
    script.prepareResult = -15;
    scriptedwdi::begin(script);
    const Outcome outcome = install();
    QCOMPARE(outcome.result, -2);
    QCOMPARE(outcome.printed,
             QByteArray("WDI driver prepare: Operation requires elevated privileges\n"));
}

void TestWindowsInstaller::libraryMayComeLater()
{
    s_isPresent = false;
    QCOMPARE(install().result, -1);

    s_isPresent = true;
    scriptedwdi::Script script;
    script.listings = {{-1, {}}, {-1, {}}};
    script.installResults = {0};
    scriptedwdi::begin(script);
    QCOMPARE(install().result, 0);
}

QTEST_GUILESS_MAIN(TestWindowsInstaller)
#include "tst_windowsinstaller.moc"
