#include "fuzzing.h"

#include "devicedescription.h"
#include "pause.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <streambuf>
#include <vector>

#include <unistd.h>

namespace {

struct KnownText
{
    QString pattern;
    bool seen = false;
};

// Any thread may write to it at any time: it keeps nothing.
class NullBuffer : public std::streambuf
{
protected:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char *, std::streamsize count) override { return count; }
};

std::vector<KnownText> s_knownTexts;

bool matches(const QString &text, const QString &pattern)
{
    const int placeHolder = pattern.indexOf(QStringLiteral("%1"));
    if (placeHolder < 0) {
        return text == pattern;
    }
    const QString before = pattern.left(placeHolder);
    const QString after = pattern.mid(placeHolder + 2);
    return text.size() >= before.size() + after.size() && text.startsWith(before) &&
           text.endsWith(after);
}

void requireAllSeen()
{
    bool all = true;
    for (const KnownText &known : s_knownTexts) {
        if (!known.seen) {
            std::fprintf(stderr, "not reached: %s\n", qPrintable(known.pattern));
            all = false;
        }
    }
    if (!all) {
        _exit(1);
    }
}

} // namespace

// The devices of the fuzz targets need no time.
void pause_seconds(unsigned)
{
}

void require(bool holds, const char *what)
{
    if (!holds) {
        std::fprintf(stderr, "== violated: %s\n", what);
        std::abort();
    }
}

void startFuzzing(const std::vector<const char *> &knownTexts)
{
    static NullBuffer nowhere;
    std::clog.rdbuf(&nowhere);
    std::cerr.rdbuf(&nowhere);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    qRegisterMetaType<uint8_t>("uint8_t");
    if (!QCoreApplication::instance()) {
        static int argc = 1;
        static char name[] = "fuzz";
        static char *argv[] = {name, nullptr};
        new QCoreApplication(argc, argv); // never deleted: libFuzzer ends with exit()
    }
    for (const char *text : knownTexts) {
        s_knownTexts.push_back({QString::fromUtf8(text)});
    }
    if (qEnvironmentVariableIsSet("CAPSO_FUZZ_REACH_ALL")) {
        std::atexit(requireAllSeen);
    }
}

void requireKnownText(const QString &text)
{
    for (KnownText &known : s_knownTexts) {
        if (matches(text, known.pattern)) {
            known.seen = true;
            return;
        }
    }
    std::fprintf(stderr, "text: %s\n", qPrintable(text));
    require(false, "an error text that is not one of the known ones");
}
