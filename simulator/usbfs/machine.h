#pragma once

#include "port.h"

#include <functional>
#include <string>
#include <vector>

namespace sim {

// The simulated computer: all ports of a scene, and the commands that change them while a program
// runs.
class Machine
{
public:
    // Builds the devices; none is plugged in yet. outputDirectory: where dump() writes.
    Machine(TestBed &bed, Transcript &transcript, const Scene &scene, std::string outputDirectory);
    ~Machine();
    Machine(const Machine &) = delete;
    Machine &operator=(const Machine &) = delete;

    void plugAll();
    void dump() const;
    // Keeps all devices for the next run; only at the end of this one.
    void keep(const std::string &stateDirectory);
    // Whether no program has a device open, as far as is known yet.
    bool isIdle() const;
    bool sawViolation() const;

    // Executes a command of the control channel and returns its answer, without the line's end.
    std::string command(const std::string &line);

    // Called by the command "quit".
    std::function<void()> onQuit;
    // News of the devices, for people who watch.
    void setNewsSink(const std::function<void(const std::string &)> &sink);

private:
    std::string execute(WordReader &words);
    std::string executeOn(Port &port, const std::string &verb, WordReader &words);
    void set(Port &port, WordReader &words) const;
    void addFault(Port &port, WordReader &words) const;
    void expectDenialAllowed() const;
    std::string list() const;
    void clearFaults(WordReader &words);
    Port &find(const std::string &name) const;

    std::string directory;
    bool canDeny;
    AddressPool addresses;
    std::vector<std::unique_ptr<Port>> ports;
    std::vector<std::optional<unsigned>> firstAddresses; // by port
};

} // namespace sim
