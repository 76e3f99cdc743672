#include "VirtualMac/Tools/JournalSaver.h"

#include <fstream>

#include "VirtualMac/Machine/JournalHead.h"
#include "VirtualMac/Machine/SavedJournal.h"

namespace virtualmac {

struct JournalSaver::Output {
  std::ofstream stream;
  bool ended = false;
};

JournalSaver::JournalSaver(const std::string& file, Stage& stage, const Scenario& scenario,
                           std::optional<double> speed) {
  if (file.empty()) return;
  output = std::make_shared<Output>();
  output->stream.open(file, std::ios::binary);
  output->stream << journalHead(scenario, speed).line() << '\n';
  stage.journal().addListener([written = output](const Journal::Entry& entry) {
    if (!written->ended) written->stream << journalLine(entry) << '\n';
  });
}

bool JournalSaver::finish(double seconds) {
  if (!output) return true;
  output->ended = true;
  output->stream << SavedJournal::endLine(seconds) << '\n';
  output->stream.close();
  return !output->stream.fail();
}

}  // namespace virtualmac
