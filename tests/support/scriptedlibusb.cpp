#include "scriptedlibusb.h"

#include "requestline.h"

#include <QCryptographicHash>
#include <QTest>

#include <algorithm>
#include <cstring>

// An open handle; kept after its closing, so that later use is seen rather than undefined.
struct libusb_device_handle
{ // NOLINT(readability-identifier-naming): libusb's name
    libusb_device *device = nullptr;
    bool open = true;
    std::vector<int> claimed{};
};

struct ScriptedUsb::State
{
    mutable std::mutex mutex;
    std::vector<std::unique_ptr<libusb_device>> devices;
    std::vector<libusb_device *> bus;
    std::vector<std::unique_ptr<libusb_device_handle>> handles;
    std::deque<int> listResults;
    std::map<quint8, std::deque<int>> results;
    std::map<quint8, std::deque<QByteArray>> replies;
    int failingTransfer = -1;
    int failingTransferCode = 0;
    int failingCall = -1;
    int failingCallCode = 0;
    int fallible = 0;
    QString failedCall;
    TransferHook transferHook;
    std::function<void(const QString &)> callHook;
    bool nullTexts = false;
    int openCount = 0;
    int closeCount = 0;
    QStringList log;
    std::vector<ScriptedTransfer> transferLog;
    QStringList violations;

    void record(std::unique_lock<std::mutex> &lock, const QString &line);
    bool failsNow(int &code);
    void require(bool good, const QString &complaint);
    void checkContext(const libusb_context *context, const char *function);
    bool checkHandle(const libusb_device_handle *handle, const char *function);
    void checkDevice(const libusb_device *device, const char *function);
    void unreference(libusb_device *device);
    int openNow() const;
    QStringList complaintsAtTheEnd();
};

namespace {

std::mutex s_currentMutex;
ScriptedUsb::State *s_current = nullptr;

ScriptedUsb::State &current()
{
    const std::lock_guard<std::mutex> lock(s_currentMutex);
    if (s_current == nullptr) {
        qFatal("libusb was called while no scripted bus exists");
    }
    return *s_current;
}

QString named(const libusb_device *device)
{
    return device != nullptr ? QString::fromStdString(device->name) : QStringLiteral("null");
}

QString named(const libusb_device_handle *handle)
{
    return handle != nullptr ? named(handle->device) : QStringLiteral("null");
}

int popOr(std::deque<int> &results, int otherwise)
{
    if (results.empty()) {
        return otherwise;
    }
    const int result = results.front();
    results.pop_front();
    return result;
}

} // namespace

// ---- state ----

// Writes a line and runs the hook outside the lock.
void ScriptedUsb::State::record(std::unique_lock<std::mutex> &lock, const QString &line)
{
    log.append(line);
    if (!callHook) {
        return;
    }
    const auto hook = callHook;
    lock.unlock();
    hook(line);
    lock.lock();
}

bool ScriptedUsb::State::failsNow(int &code)
{
    if (fallible++ != failingCall) {
        return false;
    }
    code = failingCallCode;
    failedCall = log.last();
    return true;
}

void ScriptedUsb::State::require(bool good, const QString &complaint)
{
    if (!good) {
        violations.append(complaint);
    }
}

void ScriptedUsb::State::checkContext(const libusb_context *context, const char *function)
{
    require(context == nullptr, QStringLiteral("%1 with a context of its own").arg(function));
}

bool ScriptedUsb::State::checkHandle(const libusb_device_handle *handle, const char *function)
{
    const bool known = std::any_of(handles.begin(), handles.end(),
                                   [handle](const auto &one) { return one.get() == handle; });
    const bool good = known && handle->open;
    require(good, QStringLiteral("%1 on a handle that is not open").arg(function));
    return good;
}

void ScriptedUsb::State::checkDevice(const libusb_device *device, const char *function)
{
    require(device != nullptr && device->references > 0,
            QStringLiteral("%1 on %2, to which no reference is held").arg(function, named(device)));
}

void ScriptedUsb::State::unreference(libusb_device *device)
{
    checkDevice(device, "unref");
    if (device != nullptr) {
        --device->references;
    }
}

int ScriptedUsb::State::openNow() const
{
    return static_cast<int>(std::count_if(handles.begin(), handles.end(),
                                          [](const auto &handle) { return handle->open; }));
}

// ---- the test's side ----

ScriptedUsb::ScriptedUsb() : state(std::make_unique<State>())
{
    const std::lock_guard<std::mutex> lock(s_currentMutex);
    if (s_current != nullptr) {
        qFatal("a second scripted bus");
    }
    s_current = state.get();
}

ScriptedUsb::~ScriptedUsb()
{
    {
        const std::lock_guard<std::mutex> lock(s_currentMutex);
        s_current = nullptr;
    }
    const QStringList complaints = state->complaintsAtTheEnd();
    if (!complaints.isEmpty()) {
        QTest::qFail(qPrintable(complaints.join(QStringLiteral("; "))), __FILE__, __LINE__);
    }
}

// Under the lock: what a thread that has ended did to a handle is seen whole.
QStringList ScriptedUsb::State::complaintsAtTheEnd()
{
    const std::lock_guard<std::mutex> lock(mutex);
    QStringList complaints = violations;
    if (openNow() != 0) {
        complaints.append(QStringLiteral("%1 handles are open at the end").arg(openNow()));
    }
    for (const auto &device : devices) {
        const auto ofDevice = std::count_if(handles.begin(), handles.end(), [&](const auto &one) {
            return one->open && one->device == device.get();
        });
        if (device->references != ofDevice) {
            complaints.append(QStringLiteral("%1 references to %2 remain")
                                  .arg(device->references - static_cast<int>(ofDevice))
                                  .arg(named(device.get())));
        }
    }
    return complaints;
}

libusb_device *ScriptedUsb::plug(const std::string &name, quint16 vendorId, quint16 productId)
{
    auto device = std::make_unique<libusb_device>();
    device->name = name;
    device->vendorId = vendorId;
    device->productId = productId;
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->devices.push_back(std::move(device));
    state->bus.push_back(state->devices.back().get());
    return state->bus.back();
}

libusb_device *ScriptedUsb::plug(const std::string &name, const QByteArray &id)
{
    return plug(name, id.left(4).toUShort(nullptr, 16), id.mid(5).toUShort(nullptr, 16));
}

void ScriptedUsb::unplug(libusb_device *device)
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    auto &bus = state->bus;
    bus.erase(std::remove(bus.begin(), bus.end(), device), bus.end());
}

void ScriptedUsb::answerDeviceList(std::deque<int> results)
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->listResults = std::move(results);
}

void ScriptedUsb::answer(quint8 request, std::deque<int> results)
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->results[request] = std::move(results);
}

void ScriptedUsb::answerData(quint8 request, std::deque<QByteArray> replies)
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->replies[request] = std::move(replies);
}

void ScriptedUsb::failTransfer(int number, int code)
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->failingTransfer = number;
    state->failingTransferCode = code;
}

void ScriptedUsb::failCall(int number, int code)
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->failingCall = number;
    state->failingCallCode = code;
}

void ScriptedUsb::onTransfer(TransferHook hook)
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->transferHook = std::move(hook);
}

void ScriptedUsb::onCall(std::function<void(const QString &)> hook)
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->callHook = std::move(hook);
}

void ScriptedUsb::giveNullTexts()
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->nullTexts = true;
}

QStringList ScriptedUsb::calls() const
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    QStringList copy = state->log;
    copy.detach();
    return copy;
}

void ScriptedUsb::note(const QString &line)
{
    const std::lock_guard<std::mutex> currentLock(s_currentMutex);
    if (s_current == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> lock(s_current->mutex);
    s_current->log.append(line);
}

QStringList ScriptedUsb::handleCalls() const
{
    static const QStringList s_unwanted{QStringLiteral("init"),
                                        QStringLiteral("exit"),
                                        QStringLiteral("set_debug"),
                                        QStringLiteral("get_device_list"),
                                        QStringLiteral("free_device_list"),
                                        QStringLiteral("ref_device"),
                                        QStringLiteral("unref_device"),
                                        QStringLiteral("get_device_descriptor"),
                                        QStringLiteral("get_bus_number"),
                                        QStringLiteral("get_device_address"),
                                        QStringLiteral("get_port_number")};
    QStringList lines;
    for (const QString &line : calls()) {
        if (!s_unwanted.contains(line.section(QLatin1Char(' '), 0, 0))) {
            lines.append(line);
        }
    }
    return lines;
}

QStringList ScriptedUsb::callsOf(const QString &function) const
{
    QStringList lines;
    for (const QString &line : calls()) {
        if (line.section(QLatin1Char(' '), 0, 0) == function) {
            lines.append(line);
        }
    }
    return lines;
}

std::vector<ScriptedTransfer> ScriptedUsb::transfers() const
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->transferLog;
}

QStringList ScriptedUsb::describedTransfers() const
{
    QStringList lines;
    for (const ScriptedTransfer &transfer : transfers()) {
        lines.append(describe(transfer));
    }
    return lines;
}

int ScriptedUsb::fallibleCalls() const
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->fallible;
}

QString ScriptedUsb::failedCall() const
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->failedCall;
}

int ScriptedUsb::openHandles() const
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->openNow();
}

int ScriptedUsb::opens() const
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->openCount;
}

int ScriptedUsb::closes() const
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->closeCount;
}

void ScriptedUsb::clearLog()
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->log.clear();
    state->transferLog.clear();
}

QString describe(const ScriptedTransfer &transfer)
{
    const Direction direction = transfer.isIn() ? Direction::In : Direction::Out;
    const QString line =
        requestLine({direction, transfer.request, transfer.value, transfer.index, transfer.length},
                    transfer.isIn() ? QByteArray() : transfer.data) +
        QString(" t%1").arg(transfer.timeout);
    const int vendorRequest = transfer.isIn() ? 0xC0 : 0x40;
    return transfer.requestType == vendorRequest
               ? line
               : QString("type %1 ").arg(transfer.requestType, 0, 16) + line;
}

// ---- libusb ----

extern "C" {

int LIBUSB_CALL libusb_init(libusb_context **context)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.require(context == nullptr, QStringLiteral("libusb_init with a context of its own"));
    usb.record(lock, QStringLiteral("init"));
    int code = 0;
    return usb.failsNow(code) ? code : 0;
}

void LIBUSB_CALL libusb_set_debug(libusb_context *context, int level)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.checkContext(context, "libusb_set_debug");
    usb.record(lock, QStringLiteral("set_debug %1").arg(level));
}

void LIBUSB_CALL libusb_set_log_cb(libusb_context *context, libusb_log_cb callback, int mode)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.require(context == nullptr && mode == LIBUSB_LOG_CB_GLOBAL && callback,
                QStringLiteral("libusb_set_log_cb with a callback for every context"));
    usb.record(lock, QStringLiteral("set_log_cb"));
    callback(nullptr, LIBUSB_LOG_LEVEL_WARNING, "libusb: a warning\n");
}

void LIBUSB_CALL libusb_exit(libusb_context *context)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.checkContext(context, "libusb_exit");
    usb.record(lock, QStringLiteral("exit"));
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context *context, libusb_device ***list)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.checkContext(context, "libusb_get_device_list");
    usb.record(lock, QStringLiteral("get_device_list"));
    int code = 0;
    if (usb.failsNow(code)) {
        return code;
    }
    const int count = popOr(usb.listResults, static_cast<int>(usb.bus.size()));
    if (count < 0) {
        return count;
    }
    const auto given = std::min(static_cast<std::size_t>(count), usb.bus.size());
    auto **devices = new libusb_device *[given + 1];
    std::copy_n(usb.bus.begin(), given, devices);
    std::for_each_n(devices, given, [](libusb_device *device) { ++device->references; });
    devices[given] = nullptr;
    *list = devices;
    return static_cast<ssize_t>(given);
}

void LIBUSB_CALL libusb_free_device_list(libusb_device **list, int unref)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.record(lock, QStringLiteral("free_device_list %1").arg(unref));
    for (libusb_device **device = list; unref != 0 && *device != nullptr; ++device) {
        usb.unreference(*device);
    }
    delete[] list;
}

libusb_device *LIBUSB_CALL libusb_ref_device(libusb_device *device)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.record(lock, QStringLiteral("ref_device ") + named(device));
    ++device->references;
    return device;
}

void LIBUSB_CALL libusb_unref_device(libusb_device *device)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.record(lock, QStringLiteral("unref_device ") + named(device));
    usb.unreference(device);
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device *device, libusb_device_descriptor *out)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.checkDevice(device, "libusb_get_device_descriptor");
    usb.record(lock, QStringLiteral("get_device_descriptor ") + named(device));
    int code = popOr(device->descriptorResults, 0);
    if (usb.failsNow(code) || code < 0) {
        return code;
    }
    *out = {};
    out->bLength = 18;
    out->bDescriptorType = LIBUSB_DT_DEVICE;
    out->idVendor = device->vendorId;
    out->idProduct = device->productId;
    out->iProduct = device->productString;
    out->iSerialNumber = device->serialString;
    return code;
}

uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device *device)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.checkDevice(device, "libusb_get_bus_number");
    usb.record(lock, QStringLiteral("get_bus_number ") + named(device));
    return device->bus;
}

uint8_t LIBUSB_CALL libusb_get_device_address(libusb_device *device)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.checkDevice(device, "libusb_get_device_address");
    usb.record(lock, QStringLiteral("get_device_address ") + named(device));
    return device->address;
}

uint8_t LIBUSB_CALL libusb_get_port_number(libusb_device *device)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.checkDevice(device, "libusb_get_port_number");
    usb.record(lock, QStringLiteral("get_port_number ") + named(device));
    return device->port;
}

int LIBUSB_CALL libusb_open(libusb_device *device, libusb_device_handle **handle)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    usb.checkDevice(device, "libusb_open");
    usb.record(lock, QStringLiteral("open ") + named(device));
    int code = popOr(device->openResults, device->openResult);
    if (usb.failsNow(code) || code < 0) {
        return code;
    }
    usb.handles.push_back(std::make_unique<libusb_device_handle>());
    usb.handles.back()->device = device;
    ++device->references;
    ++usb.openCount;
    *handle = usb.handles.back().get();
    return code;
}

void LIBUSB_CALL libusb_close(libusb_device_handle *handle)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    if (!usb.checkHandle(handle, "libusb_close")) {
        return;
    }
    usb.record(lock, QStringLiteral("close ") + named(handle));
    usb.require(handle->claimed.empty(), QStringLiteral("libusb_close with a claimed interface"));
    handle->open = false;
    ++usb.closeCount;
    usb.unreference(handle->device);
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle *handle, int interface)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    if (!usb.checkHandle(handle, "libusb_kernel_driver_active")) {
        return LIBUSB_ERROR_OTHER;
    }
    usb.record(lock,
               QStringLiteral("kernel_driver_active %1 %2").arg(named(handle)).arg(interface));
    int code = handle->device->kernelDriver;
    usb.failsNow(code);
    return code;
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle *handle, int interface)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    if (!usb.checkHandle(handle, "libusb_detach_kernel_driver")) {
        return LIBUSB_ERROR_OTHER;
    }
    usb.record(lock,
               QStringLiteral("detach_kernel_driver %1 %2").arg(named(handle)).arg(interface));
    int code = handle->device->detachResult;
    usb.failsNow(code);
    return code;
}

int LIBUSB_CALL libusb_attach_kernel_driver(libusb_device_handle *handle, int interface)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    if (!usb.checkHandle(handle, "libusb_attach_kernel_driver")) {
        return LIBUSB_ERROR_OTHER;
    }
    usb.record(lock,
               QStringLiteral("attach_kernel_driver %1 %2").arg(named(handle)).arg(interface));
    int code = handle->device->attachResult;
    usb.failsNow(code);
    return code;
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle *handle, int interface)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    if (!usb.checkHandle(handle, "libusb_claim_interface")) {
        return LIBUSB_ERROR_OTHER;
    }
    usb.record(lock, QStringLiteral("claim_interface %1 %2").arg(named(handle)).arg(interface));
    int code = handle->device->claimResult;
    usb.failsNow(code);
    if (code == 0) {
        handle->claimed.push_back(interface);
    }
    return code;
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle *handle, int interface)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    if (!usb.checkHandle(handle, "libusb_release_interface")) {
        return LIBUSB_ERROR_OTHER;
    }
    usb.record(lock, QStringLiteral("release_interface %1 %2").arg(named(handle)).arg(interface));
    auto &claimed = handle->claimed;
    claimed.erase(std::remove(claimed.begin(), claimed.end(), interface), claimed.end());
    int code = handle->device->releaseResult;
    usb.failsNow(code);
    return code;
}

int LIBUSB_CALL libusb_get_string_descriptor_ascii(libusb_device_handle *handle, uint8_t index,
                                                   unsigned char *data, int length)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    if (!usb.checkHandle(handle, "libusb_get_string_descriptor_ascii")) {
        return LIBUSB_ERROR_OTHER;
    }
    usb.record(lock, QStringLiteral("get_string_descriptor_ascii %1 %2 %3")
                         .arg(named(handle))
                         .arg(index)
                         .arg(length));
    int code = 0;
    if (usb.failsNow(code)) {
        return code;
    }
    const auto &strings = handle->device->strings;
    const auto found = strings.find(index);
    if (index == 0 || length <= 0) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (found == strings.end()) {
        return LIBUSB_ERROR_PIPE;
    }
    const bool terminates = handle->device->terminatesStrings;
    const int count =
        std::min(static_cast<int>(found->second.size()), terminates ? length - 1 : length);
    std::memcpy(data, found->second.constData(), static_cast<std::size_t>(count));
    if (terminates) {
        data[count] = 0;
    }
    return count;
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle *handle, uint8_t requestType,
                                        uint8_t request, uint16_t value, uint16_t index,
                                        unsigned char *data, uint16_t length, unsigned int timeout)
{
    auto &usb = current();
    std::unique_lock<std::mutex> lock(usb.mutex);
    if (!usb.checkHandle(handle, "libusb_control_transfer")) {
        return LIBUSB_ERROR_OTHER;
    }
    usb.require(!handle->claimed.empty(), QStringLiteral("a transfer without a claimed interface"));
    usb.require((data == nullptr) == (length == 0), QStringLiteral("data and wLength disagree"));

    ScriptedTransfer transfer;
    transfer.device = handle->device->name;
    transfer.requestType = requestType;
    transfer.request = request;
    transfer.value = value;
    transfer.index = index;
    transfer.length = length;
    transfer.timeout = timeout;
    transfer.number = static_cast<int>(usb.transferLog.size());
    if (!transfer.isIn() && data != nullptr) {
        transfer.data = QByteArray(reinterpret_cast<const char *>(data), length);
    }
    usb.transferLog.push_back(transfer);
    usb.record(lock,
               QStringLiteral("control_transfer %1 %2").arg(named(handle), describe(transfer)));

    int code = usb.failingTransferCode;
    if (usb.failsNow(code) || transfer.number == usb.failingTransfer) {
        return code;
    }
    auto &results = usb.results[request];
    if (!results.empty()) {
        return popOr(results, 0);
    }
    auto &replies = usb.replies[request];
    if (!replies.empty()) {
        const QByteArray reply = replies.front().left(length);
        replies.pop_front();
        std::memcpy(data, reply.constData(), static_cast<std::size_t>(reply.size()));
        return int(reply.size());
    }
    const auto hook = usb.transferHook;
    lock.unlock();
    transfer.buffer = data;
    const std::optional<int> answer = hook ? hook(transfer) : std::nullopt;
    if (answer) {
        return *answer;
    }
    if (transfer.isIn() && data != nullptr) {
        std::memset(data, 1, length);
    }
    return length;
}

const char *LIBUSB_CALL libusb_error_name(int code)
{
    static const std::map<int, const char *> s_names{
        {0, "LIBUSB_SUCCESS / LIBUSB_TRANSFER_COMPLETED"},
        {-1, "LIBUSB_ERROR_IO"},
        {-2, "LIBUSB_ERROR_INVALID_PARAM"},
        {-3, "LIBUSB_ERROR_ACCESS"},
        {-4, "LIBUSB_ERROR_NO_DEVICE"},
        {-5, "LIBUSB_ERROR_NOT_FOUND"},
        {-6, "LIBUSB_ERROR_BUSY"},
        {-7, "LIBUSB_ERROR_TIMEOUT"},
        {-8, "LIBUSB_ERROR_OVERFLOW"},
        {-9, "LIBUSB_ERROR_PIPE"},
        {-10, "LIBUSB_ERROR_INTERRUPTED"},
        {-11, "LIBUSB_ERROR_NO_MEM"},
        {-12, "LIBUSB_ERROR_NOT_SUPPORTED"},
        {-99, "LIBUSB_ERROR_OTHER"},
    };
    auto &usb = current();
    const std::lock_guard<std::mutex> lock(usb.mutex);
    if (usb.nullTexts) {
        return nullptr;
    }
    const auto found = s_names.find(code);
    return found != s_names.end() ? found->second : "**UNKNOWN**";
}

const char *LIBUSB_CALL libusb_strerror(int code)
{
    static const char *const s_sentences[] = {
        "Success",
        "Input/Output Error",
        "Invalid parameter",
        "Access denied (insufficient permissions)",
        "No such device (it may have been disconnected)",
        "Entity not found",
        "Resource busy",
        "Operation timed out",
        "Overflow",
        "Pipe error",
        "System call interrupted (perhaps due to signal)",
        "Insufficient memory",
        "Operation not supported or unimplemented on this platform",
    };
    auto &usb = current();
    const std::lock_guard<std::mutex> lock(usb.mutex);
    if (usb.nullTexts) {
        return nullptr;
    }
    return code <= 0 && code >= -12 ? s_sentences[-code] : "Other error";
}

} // extern "C"
