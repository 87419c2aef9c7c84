// A small libusb program for the tests of the simulator. It executes the verbs of its arguments
// (one argument a verb with its words) in order, and prints one line for each.

#include <libusb.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Words = std::vector<std::string>;

constexpr unsigned s_timeoutMs = 1000;
constexpr size_t s_blockSize = 4096;

libusb_device_handle *s_handles[2] = {};
int s_current = 0;

libusb_device_handle *handle()
{
    return s_handles[s_current];
}

std::string result(int code)
{
    return code < 0 ? std::string(libusb_error_name(code)).substr(strlen("LIBUSB_ERROR_"))
                    : std::to_string(code);
}

std::string hex(const Bytes &bytes)
{
    std::string text;
    char two[3];
    for (const unsigned char byte : bytes) {
        std::snprintf(two, sizeof two, "%02x", byte);
        text += two;
    }
    return text;
}

unsigned number(const std::string &word)
{
    return static_cast<unsigned>(std::strtoul(word.c_str(), nullptr, 0));
}

// Hexadecimal bytes, or "*N" for N bytes that count up.
Bytes data(const std::string &word)
{
    Bytes bytes;
    if (word[0] == '*') {
        for (unsigned i = 0; i < number(word.substr(1)); ++i) {
            bytes.push_back(static_cast<unsigned char>(i));
        }
        return bytes;
    }
    for (size_t i = 0; i + 1 < word.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(word.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

Bytes content(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

std::string idOf(libusb_device *device)
{
    libusb_device_descriptor descriptor = {};
    libusb_get_device_descriptor(device, &descriptor);
    char text[16];
    std::snprintf(text, sizeof text, "%04x:%04x", descriptor.idVendor, descriptor.idProduct);
    return text;
}

// Calls for every device but root hubs until the call returns true; whether one did.
bool anyDevice(const std::function<bool(libusb_device *)> &call)
{
    libusb_device **list = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &list);
    bool found = false;
    for (ssize_t i = 0; i < count && !found; ++i) {
        if (libusb_get_port_number(list[i]) != 0) {
            found = call(list[i]);
        }
    }
    libusb_free_device_list(list, 1);
    return found;
}

std::string list(const Words &)
{
    std::multiset<std::string> lines;
    anyDevice([&lines](libusb_device *device) {
        lines.insert(idOf(device) + "@" + std::to_string(libusb_get_port_number(device)) + "." +
                     std::to_string(libusb_get_device_address(device)));
        return false;
    });
    std::string text;
    for (const std::string &line : lines) {
        text += (text.empty() ? "" : " ") + line;
    }
    return text;
}

std::string open(const Words &words)
{
    int code = LIBUSB_ERROR_NOT_FOUND;
    anyDevice([&](libusb_device *device) {
        if (idOf(device) != words[1]) {
            return false;
        }
        code = libusb_open(device, &s_handles[s_current]);
        return true;
    });
    return result(code);
}

std::string close(const Words &)
{
    libusb_close(handle());
    s_handles[s_current] = nullptr;
    return "done";
}

// wait ID MS, gone ID MS
std::string await(const Words &words)
{
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + std::chrono::milliseconds(number(words[2]));
    const bool wanted = words[0] == "wait";
    while (anyDevice([&](libusb_device *device) { return idOf(device) == words[1]; }) != wanted) {
        if (Clock::now() > until) {
            return "in vain";
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return "done";
}

// Bus and speed of the device with this id, as libusb tells them: "3 480".
std::string speed(const Words &words)
{
    const std::map<int, std::string> names = {{LIBUSB_SPEED_FULL, "12"},
                                              {LIBUSB_SPEED_HIGH, "480"},
                                              {LIBUSB_SPEED_SUPER, "5000"},
                                              {LIBUSB_SPEED_SUPER_PLUS, "10000"}};
    std::string text = "none";
    anyDevice([&](libusb_device *device) {
        if (idOf(device) != words[1]) {
            return false;
        }
        const auto name = names.find(libusb_get_device_speed(device));
        text = std::to_string(libusb_get_bus_number(device)) + " " +
               (name == names.end() ? "unknown" : name->second);
        return true;
    });
    return text;
}

// Where the device with this id is plugged in, as libusb tells it: "1-2.1.4".
std::string path(const Words &words)
{
    std::string text = "none";
    anyDevice([&](libusb_device *device) {
        if (idOf(device) != words[1]) {
            return false;
        }
        uint8_t ports[7] = {};
        const int count = libusb_get_port_numbers(device, ports, sizeof ports);
        text = std::to_string(libusb_get_bus_number(device));
        for (int i = 0; i < count; ++i) {
            text += (i == 0 ? "-" : ".") + std::to_string(ports[i]);
        }
        return true;
    });
    return text;
}

// The driver that sysfs shows at an interface ("1-1:1.0").
// The word after the verb; without it, interface 0.
int interface(const Words &words)
{
    return words.size() > 1 ? static_cast<int>(number(words[1])) : 0;
}

std::string driver(const Words &words)
{
    char target[256] = {};
    const std::string link = "/sys/bus/usb/devices/" + words[1] + "/driver";
    if (readlink(link.c_str(), target, sizeof target - 1) < 0) {
        return "none";
    }
    const std::string whole = target;
    return whole.substr(whole.rfind('/') + 1);
}

std::string string(const Words &words)
{
    unsigned char text[128] = {};
    const int code = libusb_get_string_descriptor_ascii(
        handle(), static_cast<uint8_t>(number(words[1])), text, sizeof text - 1);
    return code < 0 ? result(code) : reinterpret_cast<char *>(text);
}

// in REQUEST VALUE INDEX LENGTH
std::string in(const Words &words)
{
    Bytes bytes(number(words[4]));
    const int code = libusb_control_transfer(handle(), 0xC0, static_cast<uint8_t>(number(words[1])),
                                             static_cast<uint16_t>(number(words[2])),
                                             static_cast<uint16_t>(number(words[3])), bytes.data(),
                                             static_cast<uint16_t>(bytes.size()), s_timeoutMs);
    bytes.resize(code < 0 ? 0 : static_cast<size_t>(code));
    return code <= 0 ? result(code) : result(code) + " " + hex(bytes);
}

int send(unsigned request, unsigned value, unsigned index, Bytes bytes, uint8_t type = 0x40)
{
    return libusb_control_transfer(handle(), type, static_cast<uint8_t>(request),
                                   static_cast<uint16_t>(value), static_cast<uint16_t>(index),
                                   bytes.data(), static_cast<uint16_t>(bytes.size()), s_timeoutMs);
}

// out REQUEST VALUE INDEX [DATA]
std::string out(const Words &words)
{
    return result(send(number(words[1]), number(words[2]), number(words[3]),
                       words.size() > 4 ? data(words[4]) : Bytes()));
}

// raw TYPE REQUEST VALUE INDEX: a request without data and any request type
std::string raw(const Words &words)
{
    return result(send(number(words[2]), number(words[3]), number(words[4]), {},
                       static_cast<uint8_t>(number(words[1]))));
}

// The zeros that a status request answers before it says ready; negative: a libusb code.
int zerosBefore(unsigned request)
{
    for (int zeros = 0;; ++zeros) {
        unsigned char byte = 0;
        const int code = libusb_control_transfer(handle(), 0xC0, static_cast<uint8_t>(request), 0,
                                                 0, &byte, 1, s_timeoutMs);
        if (code < 0) {
            return code;
        }
        if (byte) {
            return zeros;
        }
    }
}

std::string poll(const Words &words)
{
    return result(zerosBefore(number(words[1])));
}

// write START WRITE COMPLETE STATUS FILE: an image in blocks with a poll after each
std::string write(const Words &words)
{
    const Bytes image = content(words[5]);
    int code = send(number(words[1]), 0, 0, {});
    for (size_t at = 0; code >= 0 && at < image.size(); at += s_blockSize) {
        code = zerosBefore(number(words[4]));
        if (code < 0) {
            break;
        }
        const size_t size = std::min(s_blockSize, image.size() - at);
        const auto begin = image.begin() + static_cast<long>(at);
        code = send(number(words[2]), 0, 0, Bytes(begin, begin + static_cast<long>(size)));
    }
    if (code >= 0) {
        code = zerosBefore(number(words[4]));
    }
    return result(code < 0 ? code : send(number(words[3]), 0, 0, {}));
}

uint32_t word32(const Bytes &bytes, size_t at)
{
    uint32_t value = 0;
    std::memcpy(&value, &bytes[at], sizeof value);
    return value;
}

int loadSection(uint32_t address, const Bytes &section)
{
    int code = 0;
    for (size_t at = 0; code >= 0 && at < section.size(); at += s_blockSize) {
        const size_t size = std::min(s_blockSize, section.size() - at);
        const auto begin = section.begin() + static_cast<long>(at);
        const uint32_t target = address + static_cast<uint32_t>(at);
        code = send(0xA0, target & 0xFFFF, target >> 16,
                    Bytes(begin, begin + static_cast<long>(size)));
    }
    return code;
}

// boot FILE: loads an FX3 boot image and starts it
std::string boot(const Words &words)
{
    const Bytes image = content(words[1]);
    size_t at = 4;
    int code = 0;
    while (code >= 0 && word32(image, at) != 0) {
        const size_t size = size_t{word32(image, at)} * 4;
        const auto begin = image.begin() + static_cast<long>(at + 8);
        code = loadSection(word32(image, at + 4), Bytes(begin, begin + static_cast<long>(size)));
        at += 8 + size;
    }
    const uint32_t entry = word32(image, at + 4);
    return result(code < 0 ? code : send(0xA0, entry & 0xFFFF, entry >> 16, {}));
}

// sim COMMAND...: what the control channel answers
std::string sim(const Words &words)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/control",
                  std::getenv("CAPSO_SIM_DIR"));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        return "no connection";
    }
    std::string line;
    for (size_t i = 1; i < words.size(); ++i) {
        line += words[i] + (i + 1 < words.size() ? " " : "\n");
    }
    if (::write(fd, line.data(), line.size()) < 0) {
        return "no connection";
    }
    std::string answer;
    for (char c = 0; ::read(fd, &c, 1) == 1 && c != '\n';) {
        answer += c;
    }
    ::close(fd);
    return answer;
}

// use N: the following verbs concern handle N, so that a device can be opened twice
std::string use(const Words &words)
{
    s_current = static_cast<int>(number(words[1]));
    return "done";
}

std::string die(const Words &)
{
    raise(SIGKILL);
    return {};
}

// submit REQUEST: sends an IN request and does not wait for it
std::string submit(const Words &words)
{
    auto *buffer = static_cast<unsigned char *>(std::calloc(1, LIBUSB_CONTROL_SETUP_SIZE + 1));
    libusb_transfer *transfer = libusb_alloc_transfer(0);
    libusb_fill_control_setup(buffer, 0xC0, static_cast<uint8_t>(number(words[1])), 0, 0, 1);
    libusb_fill_control_transfer(
        transfer, handle(), buffer, [](libusb_transfer *) {}, nullptr, 0);
    return result(libusb_submit_transfer(transfer));
}

const std::map<std::string, std::string (*)(const Words &)> &verbs()
{
    static const std::map<std::string, std::string (*)(const Words &)> s_verbs = {
        {"list", list},
        {"open", open},
        {"close", close},
        {"wait", await},
        {"gone", await},
        {"speed", speed},
        {"path", path},
        {"driver", driver},
        {"string", string},
        {"in", in},
        {"out", out},
        {"raw", raw},
        {"poll", poll},
        {"write", write},
        {"boot", boot},
        {"sim", sim},
        {"use", use},
        {"die", die},
        {"submit", submit},
        {"claim",
         [](const Words &words) {
             return result(libusb_claim_interface(handle(), interface(words)));
         }},
        {"release",
         [](const Words &words) {
             return result(libusb_release_interface(handle(), interface(words)));
         }},
        {"active",
         [](const Words &words) {
             return result(libusb_kernel_driver_active(handle(), interface(words)));
         }},
        {"detach",
         [](const Words &words) {
             return result(libusb_detach_kernel_driver(handle(), interface(words)));
         }},
        {"attach",
         [](const Words &words) {
             return result(libusb_attach_kernel_driver(handle(), interface(words)));
         }},
        {"sleep",
         [](const Words &w) {
             std::this_thread::sleep_for(std::chrono::milliseconds(number(w[1])));
             return std::string("done");
         }},
        {"exit", [](const Words &w) -> std::string { std::exit(static_cast<int>(number(w[1]))); }},
    };
    return s_verbs;
}

} // namespace

int main(int argc, char **argv)
{
    libusb_init(nullptr);
    for (int i = 1; i < argc; ++i) {
        std::istringstream stream(argv[i]);
        const Words words{std::istream_iterator<std::string>(stream), {}};
        std::printf("%s\n", verbs().at(words[0])(words).c_str());
        std::fflush(stdout);
    }
    for (libusb_device_handle *open : s_handles) {
        if (open) {
            libusb_close(open);
        }
    }
    libusb_exit(nullptr);
    return 0;
}
