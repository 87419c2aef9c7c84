#pragma once

#include "bytes.h"
#include "json.h"
#include "protocol.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

namespace sim {

// A control transfer with its outcome, as the transcript shows it.
struct TransferRecord
{
    unsigned number = 0; // on its device, from 1
    Setup setup;
    Bytes data; // OUT: as sent; IN: as answered
    size_t actual = 0;
    std::string status;
    bool faulted = false;
};

// The record of everything that the devices saw: JSON lines, each written when it happens.
class Transcript
{
public:
    // Throws std::runtime_error when the file cannot be written. full: data of any length.
    Transcript(const std::string &path, bool full);

    void transfer(const std::string &device, unsigned address, const TransferRecord &record);
    void event(const std::string &device, unsigned address, const char *event,
               const JsonObject &details = {});

    // Milliseconds since the transcript was begun.
    uint64_t nowMs() const;

private:
    JsonObject begin(const std::string &device, unsigned address) const;
    void write(const JsonObject &line);

    struct CloseFile
    {
        void operator()(std::FILE *open) const { std::fclose(open); }
    };
    std::unique_ptr<std::FILE, CloseFile> file;
    bool full;
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
};

} // namespace sim
