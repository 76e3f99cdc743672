#include <cstring>

#include "Tests/model/reference/Model.h"

// The record on disk.

namespace model {

namespace {

const std::string directory = "/Library/Application Support/com.korvel.app.helper";
const std::string file = directory + "/state.json";
const std::string temporary = file + ".tmp";
Failure posix(const std::string& head, std::int64_t number) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the model has one thread
  const std::string words = std::strerror(static_cast<int>(number));
  return {head + words + " [NSPOSIXErrorDomain " + text(number) + ']', 0, {}};
}

}  // namespace

Record Model::load() {
  Record empty;
  if (expect("fileExists " + file).code == 0) {
    log("Persistence", 0,
        "state.json missing — first run or post-uninstall reinstall; continuing with empty "
        "defaults");
    return empty;
  }
  const Answer& content = expect("fileRead " + file);
  if (content.code == 0) {
    if (const auto found = recordFrom(content.text)) return *found;
    // How a decoder puts it is the program's own business.
    expect("logEmit com.korvel.app.helper Persistence 17 state.json corrupt — ", true);
    return empty;
  }
  log("Persistence", fault,
      "state.json corrupt — " + content.text +
          "; continuing with empty defaults until next setChargeLimit");
  return empty;
}

Outcome Model::store(const std::string& content, bool& rename) {
  const std::string mask = text(expect("fileUmask 63").code);
  Outcome failed = storeUnderMask(content, rename);
  expect("fileUmask " + mask);
  return failed;
}

Outcome Model::storeUnderMask(const std::string& content, bool& rename) {
  const Answer& made = expect("fileMkdir " + directory + " 448");
  if (made.code < 0 && made.number != 17) return posix("mkdir failed: ", made.number);
  if (made.code < 0) {
    const Answer& changedMode = expect("fileChmod " + directory + " 448");
    if (changedMode.code < 0) return posix("mkdir failed: ", changedMode.number);
  }
  const Answer& old = expect("fileUnlink " + temporary);
  if (old.code < 0 && old.number != 2) return posix("write failed: ", old.number);
  const Answer& opened = expect("fileOpenExclusive " + temporary + " 384");
  if (opened.code < 0) return posix("write failed: ", opened.number);
  const std::string descriptor = ' ' + text(opened.code);
  Outcome failed;
  for (std::size_t done = 0; done < content.size() && !failed;) {
    const Answer& wrote = expect("fileWrite" + descriptor + ' ' + content.substr(done));
    if (wrote.code > 0) done += static_cast<std::size_t>(wrote.code);
    if (wrote.code <= 0 && (wrote.code == 0 || wrote.number != 4)) {
      failed = posix("write failed: ", wrote.number);
    }
  }
  if (!failed) {
    const Answer& flushed = expect("fileFsync" + descriptor);
    if (flushed.code < 0) failed = posix("write failed: ", flushed.number);
  }
  expect("fileClose" + descriptor);
  if (!failed) {
    const Answer& replaced = expect("fileReplaceItem " + file + ' ' + temporary);
    rename = replaced.code != 0;
    if (rename) failed = Failure{"atomic rename failed: " + replaced.text, 0, {}};
  }
  if (failed) {
    expect("fileUnlink " + temporary);
    return failed;
  }
  const Answer& parent = expect("fileOpenReadOnly " + directory);
  if (parent.code < 0) {
    log("Persistence", 16,
        "fsync parent dir: open(" + directory + ") errno=" + text(parent.number));
  } else {
    expect("fileFsync " + text(parent.code));
    expect("fileClose " + text(parent.code));
  }
  const Answer& back = expect("fileRead " + file);
  if (back.code != 0) return Failure{"read-back verify failed: " + back.text, 0, {}};
  if (back.text == content) return {};
  return Failure{"read-back verify failed: on-disk bytes (" + std::to_string(back.text.size()) +
                     ") differ from intended payload (" + std::to_string(content.size()) +
                     ") [com.korvel.app.helper.persistence -1]",
                 0,
                 {}};
}

void Model::persist() {
  bool rename = false;
  const Outcome failed = store(fileText(record), rename);
  if (!failed) return;
  log("HelperImpl", fault, "persistence.write failed: " + failed->text);
  if (!rename) return;
  record = load();
  say("persistence rename failure — reverted in-memory state to last durable snapshot");
  if (record.discharging) return;
  inflow(false);
  release();
  disarm();
  lowest.reset();
}

}  // namespace model
