#pragma once

#include <QByteArray>
#include <QStringList>

#include <libusb.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// A libusb that answers from a script and writes down what it was asked.
//
// A test makes one ScriptedUsb, puts devices on its bus and runs the code under test; while the
// object lives, every libusb function of the program is answered by it. When it ends, it fails the
// running test for whatever no test wants to see: a handle left open, a reference not given back, a
// closed handle used, a transfer without a claim, a context that is not the default one.
//
// Calls may come from any thread. The devices' fields are set before the code under test runs, or
// from a hook, which runs on the calling thread.

// A device on the scripted bus; libusb leaves the type open, so this is it.
struct libusb_device
{                     // NOLINT(readability-identifier-naming): libusb's name
    std::string name; // what the call log calls it
    quint16 vendorId = 0;
    quint16 productId = 0;
    quint8 bus = 1;
    quint8 address = 1;
    quint8 port = 1;
    quint8 productString = 2;
    quint8 serialString = 0;
    // ASCII string descriptors by index; reading another one fails with LIBUSB_ERROR_PIPE.
    std::map<int, QByteArray> strings;
    // False: the texts come without the closing NUL.
    bool terminatesStrings = true;

    int kernelDriver = 0;                // answer of libusb_kernel_driver_active
    std::deque<int> descriptorResults{}; // answers of successive calls; then 0
    std::deque<int> openResults{};       // answers of successive calls; then openResult
    int openResult = 0;
    int detachResult = 0;
    int claimResult = 0;
    int attachResult = 0;
    int releaseResult = 0;

    int references = 0; // held by the program under test
};

// A control transfer as it reached the device.
struct ScriptedTransfer
{
    std::string device;
    quint8 requestType = 0;
    quint8 request = 0;
    quint16 value = 0;
    quint16 index = 0;
    quint16 length = 0;
    unsigned timeout = 0;
    QByteArray data;                 // what an OUT request carried
    int number = 0;                  // 0 for the first transfer that this bus has seen
    unsigned char *buffer = nullptr; // the caller's; only good inside a hook

    bool isIn() const { return (requestType & 0x80) != 0; }
};

// In the form of requestline.h, less the answer to an IN request, which is not known yet.
QString describe(const ScriptedTransfer &transfer);

class ScriptedUsb
{
public:
    ScriptedUsb();
    ~ScriptedUsb();
    ScriptedUsb(const ScriptedUsb &) = delete;
    ScriptedUsb &operator=(const ScriptedUsb &) = delete;

    // ---- the script ----

    // A device that is put at the end of the device list. It lives as long as the bus, also
    // unplugged.
    libusb_device *plug(const std::string &name, quint16 vendorId, quint16 productId);
    libusb_device *plug(const std::string &name, const QByteArray &id); // "e5c1:3601"
    void unplug(libusb_device *device);

    // Answers of successive libusb_get_device_list calls, before the true count.
    void answerDeviceList(std::deque<int> results);
    // The next transfers with this request get these results, one each; then the default again.
    void answer(quint8 request, std::deque<int> results);
    // The same for IN requests with data; the result is the data's length.
    void answerData(quint8 request, std::deque<QByteArray> replies);
    // The n-th transfer of all (from 0) fails with this code.
    void failTransfer(int number, int code);
    // The n-th call of all (from 0) that libusb allows to fail does so with this code. String
    // descriptors, detaching, attaching and releasing count too.
    void failCall(int number, int code);
    // Called for each transfer, without any lock held. An empty answer asks for the default:
    // everything is accepted, and an IN request yields ones (the status byte: ready).
    using TransferHook = std::function<std::optional<int>(const ScriptedTransfer &)>;
    void onTransfer(TransferHook hook);
    // Called after each call has been logged, with its line of the log and without any lock held.
    void onCall(std::function<void(const QString &)> hook);
    // error_name and strerror answer null.
    void giveNullTexts();

    // Adds a line to the call log of the bus that exists now, if any; for other doubles, whose
    // place among the calls matters.
    static void note(const QString &line);

    // ---- what happened ----

    // Every call in order, arguments included: "open a", "claim_interface a 0",
    // "control_transfer a > c5 v0 i0 0 t1000".
    QStringList calls() const;
    // Only the calls that concern an open handle or open one, and the notes.
    QStringList handleCalls() const;
    QStringList callsOf(const QString &function) const;
    std::vector<ScriptedTransfer> transfers() const;
    QStringList describedTransfers() const;
    int fallibleCalls() const;  // how many calls failCall() could have named
    QString failedCall() const; // the line of the call that failCall() hit; empty if none was
    int openHandles() const;
    int opens() const;
    int closes() const;
    void clearLog();

    // ---- for the functions of libusb (scriptedlibusb.cpp) ----
    struct State;
    std::unique_ptr<State> state;
};
