#include <memory>
#include <string>
#include <vector>

#include "Tests/fuzz/Target.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Remote/DiskWatch.h"
#include "VirtualMac/Remote/MachineHalf.h"
#include "VirtualMac/Remote/RemoteInterface.h"

namespace korvel::fuzz {

namespace {

using virtualmac::CallNumber;

constexpr int mostCalls = 200;

void serve(virtualmac::MachineHalf& half, CallNumber number, const std::string& arguments) {
  require(half.latencySeconds(number, arguments) >= 0, "a call takes less than no time");
  virtualmac::WireReader reader(arguments);
  virtualmac::WireWriter result;
  half.serve(number, reader, result);
  require(!reader.failed() || result.body().empty(), "a call that was refused has a result");
}

/// The journal that a machine keeps is read back line by line.
void readBack(const virtualmac::Journal& journal) {
  for (const virtualmac::Journal::Entry& entry : journal.entries()) {
    const std::string line = journalLine(entry);
    require(line.find('\n') == std::string::npos, "an effect has two lines");
    const auto told = virtualmac::journalEntryFrom(line);
    require(told && journalLine(*told) == line, "the journal's line does not read: " + line);
  }
}

}  // namespace

/// The input is a helper's calls to its machine, one after the other: the call's number, how many
/// bytes of arguments it has, and these; the numbers have a byte.
void machineCalls(std::string_view input) {
  static const virtualmac::Profile profile =
      virtualmac::loadProfile("newer-keys-and-native").value();
  virtualmac::Machine* running = nullptr;
  virtualmac::Journal journal(
      [&running] { return running == nullptr ? 0 : running->totalSeconds(); });
  virtualmac::Machine machine(profile, journal);
  running = &machine;
  virtualmac::DiskWatch disk(journal, "/nowhere");
  const std::shared_ptr<virtualmac::HelperProcess> process = machine.startProcess(412);
  virtualmac::MachineHalf half(machine, *process, journal, disk);
  half.setTimeSource([] { return virtualmac::MachineTime{}; });
  half.setPowerHandler([](auto&&...) {});
  virtualmac::WireReader calls(input);
  for (int made = 0; made < mostCalls && !calls.failed(); ++made) {
    const CallNumber number = calls.u8();
    std::vector<std::uint8_t> bytes(calls.u8());
    calls.raw(bytes);
    if (!calls.failed()) serve(half, number, std::string(bytes.begin(), bytes.end()));
  }
  require(process->isAlive(), "a call has ended the helper");
  readBack(journal);
}

}  // namespace korvel::fuzz
