#include "installerdouble.h"

#include "platforminstaller.h"

#include <mutex>

namespace {

std::mutex s_mutex;
std::deque<int> s_results;
QStringList s_calls;
bool s_exists = false;

} // namespace

void installer::reset()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_results.clear();
    s_calls.clear();
    s_exists = false;
}

void installer::answer(std::deque<int> results)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_results = std::move(results);
}

void installer::existsOnThisPlatform(bool exists)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_exists = exists;
}

QStringList installer::calls()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    QStringList copy = s_calls;
    copy.detach();
    return copy;
}

bool usb::has_driver_installer()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    return s_exists;
}

int usb::install_driver(unsigned short vendorId, unsigned short productId,
                        unsigned char interfaceNumber, bool composite, char *deviceDescription)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_calls.append(QString::asprintf("%04x %04x %d %s %s", vendorId, productId, interfaceNumber,
                                     composite ? "composite" : "single",
                                     deviceDescription != nullptr ? deviceDescription : "null"));
    if (s_results.empty()) {
        return -1;
    }
    const int result = s_results.front();
    s_results.pop_front();
    return result;
}
