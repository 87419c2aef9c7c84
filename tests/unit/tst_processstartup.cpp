#include "processstartup.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <array>

#include <windows.h>

// What main() does first on Windows. Where the program then takes Qt's plug-ins from,
// screen.planted sees of the program itself.
class TestProcessStartup : public QObject
{
    Q_OBJECT

private slots:
    void librariesAreTakenFromNoFolderThatSomebodyHasNamed();
    void optionsOfTheToolkitAreDropped();
    void noArgumentAtAllIsNoMistake();
};

namespace {

bool can_load(const QString &library)
{
    const HMODULE module = LoadLibraryW(reinterpret_cast<const wchar_t *>(library.utf16()));
    return module != nullptr && FreeLibrary(module);
}

} // namespace

// One function, since a process cannot take back what it has been prepared for.
void TestProcessStartup::librariesAreTakenFromNoFolderThatSomebodyHasNamed()
{
    const QTemporaryDir current;
    const QTemporaryDir searched;
    const QString library = QCoreApplication::applicationDirPath() + "/libusb-1.0.dll";
    QVERIFY(QFile::copy(library, current.filePath("planted-current.dll")));
    QVERIFY(QFile::copy(library, searched.filePath("planted-path.dll")));
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(current.path()));
    qputenv("PATH", QDir::toNativeSeparators(searched.path()).toLocal8Bit());
    QVERIFY(can_load("planted-current.dll"));
    QVERIFY(can_load("planted-path.dll"));

    platform::prepare_process();

    QVERIFY(!can_load("planted-current.dll"));
    QVERIFY(!can_load("planted-path.dll"));
    QVERIFY(can_load("libusb-1.0.dll")); // beside the program
    QVERIFY(can_load("winusb.dll"));     // of the system
    QVERIFY(QDir::setCurrent(before));
}

void TestProcessStartup::optionsOfTheToolkitAreDropped()
{
    std::array<char, 8> name{"program"};
    std::array<char, 20> option{"-platformpluginpath"};
    std::array<char, 4> folder{"C:/"};
    std::array<char *, 4> arguments{name.data(), option.data(), folder.data(), nullptr};
    int count = 3;
    platform::drop_toolkit_options(count, arguments.data());
    QCOMPARE(count, 1);
    QCOMPARE(arguments[0], "program");
    QVERIFY(arguments[1] == nullptr);
}

void TestProcessStartup::noArgumentAtAllIsNoMistake()
{
    std::array<char *, 1> arguments{nullptr};
    int count = 0;
    platform::drop_toolkit_options(count, arguments.data());
    QCOMPARE(count, 0);
}

QTEST_GUILESS_MAIN(TestProcessStartup)
#include "tst_processstartup.moc"
