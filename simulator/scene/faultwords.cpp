#include "faultwords.h"

#include <algorithm>
#include <cctype>

namespace sim {
namespace {

using Action = Fault::Action;
using Where = Fault::Where;

constexpr uint32_t s_longestTime = 24 * 3600 * 1000;

// Where an action can strike, and what follows it.
struct ActionWord
{
    const char *word;
    Action action;
    bool transfer;
    bool claim;
    bool open;
};

constexpr ActionWord s_actions[] = {
    {"stall", Action::Stall, true, false, false},
    {"silence", Action::Silence, true, false, false},
    {"disconnect", Action::Disconnect, true, false, false},
    {"protocol", Action::Protocol, true, false, false},
    {"overflow", Action::Overflow, true, false, false},
    {"short", Action::Short, true, false, false},
    {"data", Action::Data, true, false, false},
    {"zeros", Action::Zeros, true, false, false},
    {"delay", Action::Delay, true, false, false},
    {"busy", Action::Busy, false, true, false},
    {"not-found", Action::NotFound, false, true, false},
    {"no-device", Action::NoDevice, false, true, true},
    {"denied", Action::Denied, false, false, true},
};

void readRequestWhere(WordReader &words, const std::string &word, Fault &fault)
{
    fault.where = Where::Request;
    const int code = requestCode(word);
    const bool number = std::isdigit(static_cast<unsigned char>(word[0]));
    if (code < 0 && !number) {
        throw SceneError("unknown request '" + word + "'");
    }
    fault.code = static_cast<uint8_t>(code >= 0 ? code : parseNumber(word, "request", 0, 255));
    if (words.accept("in")) {
        fault.direction = Direction::In;
    } else if (words.accept("out")) {
        fault.direction = Direction::Out;
    }
    if (words.accept("index")) {
        fault.index = static_cast<uint16_t>(words.number("index", 0, 0xFFFF));
    }
}

void readWhere(WordReader &words, Fault &fault)
{
    const std::string word = words.next("place of the fault");
    if (word == "transfer") {
        fault.where = Where::Transfer;
    } else if (word == "MEMORY_START") {
        fault.where = Where::Start;
    } else if (word == "string") {
        fault.where = Where::String;
        fault.code = static_cast<uint8_t>(words.number("string index", 0, 255));
    } else if (word == "claim") {
        fault.where = Where::Claim;
    } else if (word == "open") {
        fault.where = Where::Open;
        fault.nth = 0;
    } else {
        readRequestWhere(words, word, fault);
    }
}

void readOccurrence(WordReader &words, Fault &fault)
{
    if (fault.where == Where::Open) {
        return;
    }
    if (words.accept("every")) {
        fault.nth = 0;
    } else if (words.accept("nth")) {
        fault.nth = words.number("occurrence", 1, 0xFFFFFFFF);
    }
}

Bytes hexBytes(const std::string &word)
{
    const auto isHex = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
    if (word.size() % 2 != 0 || !std::all_of(word.begin(), word.end(), isHex)) {
        throw SceneError("'" + word + "' is not a number of bytes in hexadecimal");
    }
    Bytes bytes;
    for (size_t i = 0; i < word.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(word.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

const ActionWord &findAction(const std::string &word, Where where)
{
    for (const ActionWord &candidate : s_actions) {
        if (word != candidate.word) {
            continue;
        }
        const bool fits = where == Where::Claim  ? candidate.claim
                          : where == Where::Open ? candidate.open
                                                 : candidate.transfer;
        if (!fits) {
            throw SceneError("'" + word + "' cannot happen there");
        }
        return candidate;
    }
    failUnknown(word);
}

void readDetails(WordReader &words, Fault &fault)
{
    switch (fault.action) {
    case Action::Short:
        fault.amount = words.number("number of bytes", 0, 0xFFFF);
        break;
    case Action::Zeros:
        fault.amount = words.number("number of zeros", 1, 1000000);
        break;
    case Action::Delay:
        fault.amount = words.number("time", 0, s_longestTime);
        break;
    case Action::Data:
        fault.data = hexBytes(words.next("bytes"));
        break;
    case Action::Disconnect:
        if (words.accept("replug")) {
            fault.replugMs = words.number("time", 0, s_longestTime);
        }
        if (fault.replugMs && words.accept("address")) {
            fault.replugAddress = words.number("address", 2, 127);
        }
        break;
    default:
        break;
    }
}

bool canBePerformed(Action action)
{
    return action == Action::Stall || action == Action::Silence || action == Action::Disconnect ||
           action == Action::Protocol || action == Action::Overflow;
}

} // namespace

Fault parseFault(WordReader &words)
{
    Fault fault;
    readWhere(words, fault);
    readOccurrence(words, fault);
    fault.action = findAction(words.next("action"), fault.where).action;
    readDetails(words, fault);
    if (canBePerformed(fault.action)) {
        fault.performed = words.accept("performed");
    }
    words.expectEnd();
    return fault;
}

} // namespace sim
