// The floor under the program: the bare loop's requests, and around them what no scan and no update
// of the program does without. They run on a thread of their own, each line of the log goes through
// qDebug(), the texts become QStrings, and what is found, how far it is and that it has ended cross
// to the first thread as queued signals. Nothing of src/ is in here.
//
//   bench-floor scan TIMES
//   bench-floor update BITSTREAM       as the first generation takes it

#include <QCoreApplication>
#include <QDebug>
#include <QLoggingCategory>
#include <QThread>
#include <QVector>

#include <libusb.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

struct Found
{
    quint16 vendorId = 0;
    quint16 productId = 0;
    quint8 bus = 0;
    quint8 port = 0;
    quint8 address = 0;
    QString product;
    QString serial;
    QString version;
};
Q_DECLARE_METATYPE(Found)

namespace {

constexpr int s_vendor = 0xE5C1;
constexpr int s_block = 4096;

int must(long result, const char *what)
{
    if (result < 0) {
        qCritical("bench-floor: %s: %s", what, libusb_error_name(int(result)));
        std::exit(1);
    }
    return int(result);
}

int out(libusb_device_handle *handle, quint8 request, const void *data, int length)
{
    auto *bytes = const_cast<unsigned char *>(static_cast<const unsigned char *>(data));
    return must(libusb_control_transfer(handle, 0x40, request, 0, 0, bytes, quint16(length), 10000),
                "OUT");
}

int status(libusb_device_handle *handle, quint8 request, quint8 *ready)
{
    return must(libusb_control_transfer(handle, 0xC0, request, 0, 0, ready, 1, 1000), "status");
}

void waitReady(libusb_device_handle *handle, quint8 request)
{
    quint8 ready = 0;
    while (ready == 0) {
        status(handle, request, &ready);
    }
}

QString text(libusb_device_handle *handle, quint8 index)
{
    char text[128] = {};
    libusb_get_string_descriptor_ascii(handle, index, reinterpret_cast<unsigned char *>(text), 127);
    return QString::fromLatin1(text);
}

libusb_device_handle *open(libusb_device *device)
{
    libusb_device_handle *handle = nullptr;
    must(libusb_open(device, &handle), "open");
    return handle;
}

void claim(libusb_device_handle *handle)
{
    libusb_kernel_driver_active(handle, 0);
    const int claimed = must(libusb_claim_interface(handle, 0), "claim");
    qDebug() << "Claim interface:" << 0 << claimed;
}

void giveBack(libusb_device_handle *handle)
{
    libusb_attach_kernel_driver(handle, 0);
    libusb_release_interface(handle, 0);
    libusb_close(handle);
}

Found probe(libusb_device *device, const libusb_device_descriptor &descriptor)
{
    qDebug() << "Probe VELK3/SORN3";
    qDebug() << "Product string id:" << descriptor.iProduct;
    qDebug() << "Serial number string id:" << descriptor.iSerialNumber;
    libusb_device_handle *handle = open(device);
    Found found{descriptor.idVendor,
                descriptor.idProduct,
                libusb_get_bus_number(device),
                libusb_get_port_number(device),
                libusb_get_device_address(device),
                text(handle, descriptor.iProduct),
                text(handle, descriptor.iSerialNumber),
                text(handle, 3)};
    claim(handle);
    quint8 ready = 0;
    const int answered = status(handle, 0xC8, &ready);
    giveBack(handle);
    qDebug() << "Ping device:" << answered;
    return found;
}

} // namespace

class Worker : public QObject
{
    Q_OBJECT

signals:
    void found(const Found &device);
    void progress(int percent);
    void complete();

public slots:
    void scan();
    void update(const QString &bitstream);

private:
    // Opened, when it is looked for alone.
    libusb_device_handle *walk(bool openFirst);
    quint32 stream(libusb_device_handle *handle, std::FILE *file, quint32 size);
};

libusb_device_handle *Worker::walk(bool openFirst)
{
    libusb_device_handle *handle = nullptr;
    libusb_device **list = nullptr;
    const int count = must(libusb_get_device_list(nullptr, &list), "device list");
    for (int i = 0; i < count && !handle; ++i) {
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(list[i], &descriptor);
        qDebug() << "check device" << Qt::hex << descriptor.idVendor << "/" << descriptor.idProduct;
        if (descriptor.idVendor == s_vendor && openFirst) {
            handle = open(list[i]);
        } else if (descriptor.idVendor == s_vendor) {
            emit found(probe(list[i], descriptor));
        }
    }
    libusb_free_device_list(list, 1);
    return handle;
}

void Worker::scan()
{
    qDebug() << "Scan devices";
    walk(false);
    emit complete();
}

quint32 Worker::stream(libusb_device_handle *handle, std::FILE *file, quint32 size)
{
    quint8 block[s_block];
    quint32 crc = 0;
    quint64 total = 0;
    int number = 1;
    for (std::size_t length = 0; (length = std::fread(block, 1, s_block, file)) > 0;) {
        crc = quint32(crc32(crc, block, uInt(length)));
        const int sent = out(handle, 0xC2, block, int(length));
        qDebug("Write chunk [ %d ] size:  %d", number, sent);
        number += 1;
        total += quint64(sent);
        emit progress(int(100 * total / size));
        waitReady(handle, 0xC4);
    }
    return crc;
}

void Worker::update(const QString &bitstream)
{
    std::FILE *file = std::fopen(qPrintable(bitstream), "rb");
    libusb_device_handle *handle = walk(true);
    if (!file || !handle) {
        qFatal("bench-floor: no bitstream, or no device");
    }
    std::fseek(file, 0, SEEK_END);
    quint32 header[3] = {0x41475046 /* FPGA */, quint32(std::ftell(file)), 0};
    std::rewind(file);
    header[2] = quint32(crc32(0, reinterpret_cast<const Bytef *>(header), 8));
    claim(handle);
    out(handle, 0xC1, nullptr, 0);
    waitReady(handle, 0xC4);
    out(handle, 0xC2, header, sizeof(header));
    const quint32 crc = stream(handle, file, header[1]);
    out(handle, 0xC2, &crc, sizeof(crc));
    waitReady(handle, 0xC4);
    out(handle, 0xC3, nullptr, 0);
    giveBack(handle);
    std::fclose(file);
    emit complete();
}

// Where the window listens.
class Front : public QObject
{
    Q_OBJECT

signals:
    void scan();
    void update(const QString &bitstream);
    void found(const Found &device);
    void progress(int percent);
    void complete();
};

namespace {

// Returns how many devices the scans found.
int run(int scans, const QString &bitstream)
{
    int devices = 0;
    QThread thread;
    Worker worker;
    worker.moveToThread(&thread);
    Front front;
    QVector<Found> last;
    QObject::connect(&front, &Front::scan, &worker, &Worker::scan);
    QObject::connect(&front, &Front::update, &worker, &Worker::update);
    QObject::connect(&worker, &Worker::found, &front, &Front::found);
    QObject::connect(&worker, &Worker::progress, &front, &Front::progress);
    QObject::connect(&worker, &Worker::complete, &front, &Front::complete);
    QObject::connect(&front, &Front::found, [&last](const Found &device) { last += device; });
    QObject::connect(&front, &Front::complete, [] { QCoreApplication::quit(); });
    thread.start();
    for (int i = 0; i < scans; ++i) {
        last.clear();
        emit front.scan();
        QCoreApplication::exec();
        devices += int(last.size());
    }
    if (scans == 0) {
        emit front.update(bitstream);
        QCoreApplication::exec();
    }
    thread.quit();
    thread.wait();
    return devices;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::defaultCategory()->isDebugEnabled(); // reads the rules, as in bench-tasks
    qRegisterMetaType<Found>("Found");
    const QString what = QCoreApplication::arguments().value(1);
    const QString argument = QCoreApplication::arguments().value(2);
    const int scans = what == QLatin1String("scan") ? argument.toInt() : 0;
    if (argc != 3 || (scans < 1 && what != QLatin1String("update"))) {
        std::fputs("usage: bench-floor scan TIMES | update BITSTREAM\n", stderr);
        return 2;
    }
    must(libusb_init(nullptr), "libusb_init");
    const int devices = run(scans, argument);
    libusb_exit(nullptr);
    return devices < scans ? 1 : 0;
}

#include "floor.moc"
