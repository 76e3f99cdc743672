#pragma once

#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace virtualmac {

/// A word that may stand next on a command line, and its sentence; an empty sentence: it has none.
struct Offer {
  std::string word;
  std::string text;
};

/// All that may stand next.
struct Offers {
  std::vector<Offer> words = {};
  bool files = false;    ///< A file's name may stand there, or a folder's on the way to one.
  bool folders = false;  ///< Only a folder's name may.
};

/// The values of each kind by its name, which is the type that an option's help shows: `IDENTITY`.
/// Each is asked with the words of the same argument that come before.
using ValueKinds =
    std::map<std::string, std::function<Offers(std::span<const std::string> before)>, std::less<>>;

/// Tells what may stand in the place of the last of `words`, which is begun and may be empty. They
/// are those after the program's name, read by the program's own table of commands and
/// options, and wrong ones before the last are passed over. Options are offered to a word that
/// begins like one, and to an empty one that nothing else fits.
Offers offersFor(const CLI::App& program, std::span<const std::string> words,
                 const ValueKinds& kinds);

}  // namespace virtualmac
