#include "expectation.h"

#include "libusbtexts.h"
#include "simtranscript.h"
#include "wiremodel.h"

#include <algorithm>

// ---- the table: what each transfer's failure is called, and how far the images are by then

namespace {

enum class Wording { Name, Sentence, Number }; // how a message puts libusb's code

struct RoleFacts
{
    Role role;
    Stage stage;
    Stage afterTheDeed; // the stage when the device has done it
    Wording wording;
    const char *text;
};

// clang-format off
const RoleFacts s_roles[] = {
    {Role::PieceWrite,   Stage::Nothing,  Stage::Nothing,  Wording::Name,     "Error: failed to write microcode: %1"},
    {Role::PieceRead,    Stage::Nothing,  Stage::Nothing,  Wording::Name,     "Error: failed to write microcode: %1"},
    {Role::SandboxStart, Stage::Nothing,  Stage::Nothing,  Wording::Name,     "Error: failed to start microcode: %1"},
    {Role::Fx3Start,     Stage::Nothing,  Stage::Fx3Open,  Wording::Sentence, "Error: failed to start microcode reflashing: %1"},
    {Role::Fx3Poll,      Stage::Fx3Open,  Stage::Fx3Open,  Wording::Name,     "Error: failed to connect to FPGA: %1"},
    {Role::Fx3Block,     Stage::Fx3Open,  Stage::Fx3Open,  Wording::Sentence, "Error: failed to write microcode block: %1"},
    {Role::Fx3Complete,  Stage::Fx3Open,  Stage::Fx3Done,  Wording::Sentence, "Error: failed to complete microcode reflash: %1"},
    {Role::FpgaStart,    Stage::Fx3Done,  Stage::FpgaOpen, Wording::Name,     "Error: failed to start FPGA reflashing: %1"},
    {Role::FpgaPoll,     Stage::FpgaOpen, Stage::FpgaOpen, Wording::Name,     "Error: failed to connect to FPGA: %1"},
    {Role::FpgaHeader,   Stage::FpgaOpen, Stage::FpgaOpen, Wording::Name,     "Error: failed to write FPGA header block:  %1"},
    {Role::FpgaBlock,    Stage::FpgaOpen, Stage::FpgaOpen, Wording::Name,     "Error: failed to write FPGA block:  %1"},
    {Role::FpgaRawBlock, Stage::FpgaOpen, Stage::FpgaOpen, Wording::Name,     "Error: failed to write FPGA block:  %1"},
    {Role::FpgaCrc,      Stage::FpgaOpen, Stage::FpgaOpen, Wording::Name,     "Error: failed FPGA CRC check: %1"},
    {Role::FpgaComplete, Stage::FpgaOpen, Stage::Done,     Wording::Name,     "Error: failed to complete FPGA reflash: %1"},
    {Role::EdidStart,    Stage::Done,     Stage::Done,     Wording::Number,   "Can't initiate EDID IO access (err: %1)"},
    {Role::EdidData,     Stage::Done,     Stage::Done,     Wording::Number,   "Can't send EDID data to the device (err: %1)"},
    {Role::EdidComplete, Stage::Done,     Stage::Done,     Wording::Number,   "Can't finalize EDID IO access (err: %1)"},
};

// A part of a block arrives, the device takes it for the whole, and so does libusb: the update goes
// on and ends well. A framed bitstream is not in this list, since its CRC tells the device.
const struct
{
    Role role;
    const char *reason;
} s_falseSuccesses[] = {
    {Role::Fx3Block,     "the device has taken a short block of microcode for a whole one"},
    {Role::FpgaRawBlock, "the device has taken a short block of a bitstream without a CRC for a whole one"},
    {Role::EdidData,     "the device has taken a short EDID for a whole one"},
};
// clang-format on

const RoleFacts &factsOf(Role role)
{
    for (const RoleFacts &facts : s_roles) {
        if (facts.role == role) {
            return facts;
        }
    }
    qFatal("no such role in an update");
}

QString errorText(Role role, Fault fault)
{
    const RoleFacts &facts = factsOf(role);
    const FaultFacts &code = factsOf(fault);
    switch (facts.wording) {
    case Wording::Name:
        return QString(facts.text).arg(code.name);
    case Wording::Sentence:
        return QString(facts.text).arg(libusbText(code.code));
    default:
        return QString(facts.text).arg(code.code);
    }
}

bool isPoll(Role role)
{
    return role == Role::Fx3Poll || role == Role::FpgaPoll;
}

// How the program is told of it. A device that has started the sandbox is off the bus before anyone
// has waited for its answer.
Fault toldAs(const Step &step, Fault fault)
{
    const bool left = step.role == Role::SandboxStart && fault == Fault::SilenceAfter;
    return left ? Fault::DisconnectAfter : fault;
}

} // namespace

// ---- one transfer

bool applies(const Step &step, Fault fault)
{
    if (isAfterTheDeed(fault)) {
        return step.role < Role::LanguageString || step.role > Role::Ping;
    }
    if (fault == Fault::Short) {
        return !step.data.isEmpty();
    }
    return fault != Fault::Wrong || step.in;
}

QByteArray shortened(const QByteArray &data)
{
    return data.left(data.size() / 2);
}

QByteArray wrongAnswer(const Step &step)
{
    if (!step.wrong.isEmpty()) {
        return step.wrong;
    }
    QByteArray wrong = step.data;
    for (char &byte : wrong) {
        byte = char(~byte);
    }
    return wrong;
}

QByteArray sceneWords(const Step &step, Fault fault)
{
    if (fault == Fault::Short) {
        return "short " + QByteArray::number(shortened(step.data).size());
    }
    if (fault == Fault::Wrong) {
        return isPoll(step.role) ? "zeros 2" : "data " + wrongAnswer(step).toHex();
    }
    return factsOf(fault).scene;
}

QString struckLine(const Step &step, Fault fault)
{
    if (!step.in) {
        const QString taken = QString(" short %1").arg(shortened(step.data).size());
        return step.line + (fault == Fault::Short ? taken : factsOf(toldAs(step, fault)).wire);
    }
    const QString request = step.line.section(' ', 0, 4); // less the answer
    if (fault == Fault::Short) {
        const QByteArray part = shortened(step.data);
        return request + (part.isEmpty() ? QString() : ' ' + showBytes(part)) +
               QString(" short %1").arg(part.size());
    }
    if (fault == Fault::Wrong) {
        return request + ' ' + showBytes(wrongAnswer(step));
    }
    return request + factsOf(fault).wire;
}

// ---- a whole update

namespace {

class ExpectationBuilder
{
public:
    ExpectationBuilder(const Script &whole, bool isRepair) : script(whole), repairing(isRepair)
    {
        expected.wire = WireModel().openForWork().lines();
        expected.signalLines = QStringList{"progress 1", "progress 2"};
    }

    Expectation withoutFault()
    {
        through(0, script.steps.size());
        succeed();
        return expected;
    }

    Expectation withFault(std::size_t at, Fault fault)
    {
        through(0, at);
        const Step &step = script.steps[at];
        reach(step);
        if (isError(fault)) {
            strike(at, fault);
        } else if (isPoll(step.role)) {
            answerPoll(at, fault);
        } else if (step.in) {
            expected.wire += struckLine(step, fault);
            fail(step, "Fail to verify image");
        } else {
            expected.wire += struckLine(step, fault);
            sendShort(at);
        }
        return expected;
    }

private:
    // The transfers from number `from` up to the one before `to` go through, and the progress
    // before each of them is signalled.
    void through(std::size_t from, std::size_t to)
    {
        for (std::size_t i = from; i < to; ++i) {
            reach(script.steps[i]);
            expected.wire += script.steps[i].line;
        }
    }

    void reach(const Step &step)
    {
        signalAll(step.before);
        expected.wire += step.handles;
        if (!step.handles.isEmpty()) {
            expected.sandboxRuns = true;
        }
    }

    void signalAll(const std::vector<Progress> &values)
    {
        for (const Progress &progress : values) {
            const qint64 lost = progress.block == lossyBlock ? missing : 0;
            expected.signalLines += QString("progress %1").arg(progress.value(lost));
        }
    }

    void error(const QString &text)
    {
        expected.errors += text;
        expected.signalLines += "error " + text;
    }

    void succeed()
    {
        signalAll(script.rest);
        expected.signalLines += QStringList{"progress 100", "complete"};
        giveBack();
    }

    // Ends at this transfer. A repair's bar goes to the end all the same.
    void fail(const Step &step, const QString &text)
    {
        error(text);
        expected.stage = factsOf(step.role).stage;
        if (repairing) {
            expected.signalLines += "progress 100";
        }
        expected.signalLines += "complete";
        giveBack();
    }

    void giveBack()
    {
        const bool away = expected.gone || expected.left;
        expected.wire +=
            away ? QStringList{"release 0 no-device", "close"} : WireModel().giveBack().lines();
    }

    void strike(std::size_t at, Fault fault)
    {
        const Step &step = script.steps[at];
        const bool done = isAfterTheDeed(fault);
        expected.wire += struckLine(step, fault);
        expected.gone = isDeparture(fault);
        expected.left = done && !expected.gone && step.role == Role::SandboxStart;
        if (step.role == Role::FpgaCrc) {
            loseCrc(at, fault);
            return;
        }
        expected.firstPoll = pollAfter(at, done);
        fail(step, errorText(step.role, toldAs(step, fault)));
        if (done) {
            expected.stage = factsOf(step.role).afterTheDeed;
        }
        if (expected.stage == Stage::Fx3Open) {
            expected.microcodeTaken = microcodeUpTo(done ? at + 1 : at);
        }
    }

    // A device that was busy when the poll got lost is as busy afterwards; one that has begun, or
    // has taken a block, says so when it is asked next.
    int pollAfter(std::size_t at, bool done) const
    {
        const Step &asked = script.steps[std::min(done ? at + 1 : at, script.steps.size() - 1)];
        return asked.role == Role::Fx3Poll && asked.data[0] == 0 ? 0 : 1;
    }

    qint64 microcodeUpTo(std::size_t end) const
    {
        qint64 bytes = 0;
        for (std::size_t i = 0; i < end; ++i) {
            bytes += script.steps[i].role == Role::Fx3Block ? script.steps[i].data.size() : 0;
        }
        return bytes;
    }

    // Whether the CRC matters is the device's decision: it is asked whether it is ready, and told
    // to complete. If it has not got the CRC, it has got nothing to do and refuses.
    void loseCrc(std::size_t at, Fault fault)
    {
        error(errorText(Role::FpgaCrc, fault));
        if (expected.gone) {
            fail(script.steps[at], errorText(Role::FpgaPoll, fault));
        } else if (isAfterTheDeed(fault)) {
            through(at + 1, script.steps.size());
            succeed();
        } else {
            expected.wire += WireModel().poll(0xC4, 1).lines();
            refuseCompletion();
        }
    }

    void refuseCompletion()
    {
        Step completion = script.steps.back();
        for (const Step &step : script.steps) {
            completion = step.role == Role::FpgaComplete ? step : completion;
        }
        expected.wire += struckLine(completion, Fault::Stall);
        fail(completion, errorText(Role::FpgaComplete, Fault::Stall));
    }

    // An answer without a byte means busy, like a zero.
    void answerPoll(std::size_t at, Fault fault)
    {
        const Step &step = script.steps[at];
        const QString zero = WireModel().poll(step.request.code, 0).lines().first();
        if (fault == Fault::Wrong) {
            expected.wire += QStringList{zero, zero};
            expected.wire += step.line;
        } else {
            expected.wire += struckLine(step, fault);
            if (step.data[0] != 0) {
                expected.wire += step.line; // asked once more
            }
        }
        through(at + 1, script.steps.size());
        succeed();
    }

    // Half of what was sent has arrived.
    void sendShort(std::size_t at)
    {
        const Step &step = script.steps[at];
        lossyBlock = step.role;
        missing = step.data.size() - shortened(step.data).size();
        if (step.role == Role::PieceWrite) {
            readHoles(at + 1);
            return;
        }
        for (const auto &row : s_falseSuccesses) {
            if (row.role == step.role) {
                expected.differs = row.reason;
                through(at + 1, script.steps.size());
                succeed();
                return;
            }
        }
        // The header, the data or the CRC of a framed bitstream: the device finds out at the end.
        std::size_t next = at + 1;
        for (; script.steps[next].role != Role::FpgaComplete; ++next) {
            through(next, next + 1);
        }
        reach(script.steps[next]);
        refuseCompletion();
    }

    // RAM that nothing was written to reads as zeros.
    void readHoles(std::size_t at)
    {
        Step read = script.steps[at];
        reach(read);
        const QByteArray arrived = shortened(read.data);
        const QByteArray held = arrived + QByteArray(read.data.size() - arrived.size(), '\0');
        expected.wire += read.line.section(' ', 0, 4) + ' ' + showBytes(held);
        fail(read, "Fail to verify image");
    }

    const Script &script;
    const bool repairing;
    Expectation expected;
    Role lossyBlock = Role::SandboxStart; // whose bytes are missing; no progress counts this role's
    qint64 missing = 0;
};

} // namespace

Expectation expectUpdate(const Script &script, bool repairing)
{
    return ExpectationBuilder(script, repairing).withoutFault();
}

Expectation expectUpdate(const Script &script, bool repairing, std::size_t at, Fault fault)
{
    return ExpectationBuilder(script, repairing).withFault(at, fault);
}
