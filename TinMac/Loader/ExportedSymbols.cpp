#include "TinMac/Loader/ExportedSymbols.h"

#include <bit>
#include <set>
#include <vector>

#include "TinMac/Loader/MachO.h"

namespace tinmac {

namespace {

class Collector {
 public:
  Collector(const Layout& image, std::byte* mapped) : layout(image), header(mapped) {}

  void add(std::string_view name, std::uint64_t fromHeader) {
    if (fromHeader > layout.span) {
      throw Refused("export " + std::string(name) + " lies outside of the image");
    }
    symbols.insert_or_assign(std::string(name), static_cast<void*>(header + fromHeader));
  }

  void addAbsolute(std::string_view name, std::uint64_t value) {
    symbols.insert_or_assign(std::string(name), std::bit_cast<void*>(value));
  }

  ExportedSymbols symbols;

 private:
  const Layout& layout;
  std::byte* header;
};

/// Reads the tree whose edges are parts of names.
class TrieReader {
 public:
  TrieReader(const Bytes& bytes, Collector& target) : trie(bytes), collector(target) {}

  void read() {
    open.push_back({0, ""});
    while (!open.empty()) {
      const Node node = std::move(open.back());
      open.pop_back();
      if (!seen.insert(node.offset).second) {
        throw Refused("the exports trie comes twice to one place");
      }
      readNode(node);
    }
  }

 private:
  struct Node {
    std::uint64_t offset;
    std::string name;
  };

  void readNode(const Node& node) {
    std::uint64_t offset = node.offset;
    const std::uint64_t exportSize = trie.uleb(offset);
    if (exportSize != 0) {
      readExport(offset, node.name);
    }
    offset += exportSize;
    const auto children = trie.read<std::uint8_t>(offset++);
    for (unsigned child = 0; child < children; ++child) {
      const std::string_view edge = trie.text(offset);
      offset += edge.size() + 1;
      open.push_back({trie.uleb(offset), node.name + std::string(edge)});
    }
  }

  void readExport(std::uint64_t offset, const std::string& name) {
    const std::uint64_t flags = trie.uleb(offset);
    const std::uint64_t kind = flags & macho::exportKindMask;
    const std::uint64_t known = macho::exportKindMask | macho::exportWeak;
    if ((flags & ~known) != 0 || (kind != macho::exportRegular && kind != macho::exportAbsolute)) {
      throw Refused("export " + name + " with the flags " + hexText(flags) +
                    " (thread-local, passed on or chosen at run time) is not supported");
    }
    const std::uint64_t value = trie.uleb(offset);
    if (kind == macho::exportAbsolute) {
      collector.addAbsolute(name, value);
    } else {
      collector.add(name, value);
    }
  }

  const Bytes& trie;
  Collector& collector;
  std::vector<Node> open;
  std::set<std::uint64_t> seen;
};

void readTable(const Bytes& file, const Layout& layout, Collector& collector) {
  const SymbolTable& table = *layout.symbolTable;
  const Bytes symbols = file.part(table.symbols.offset, table.symbols.size, "the symbol table");
  const Bytes text = file.part(table.text.offset, table.text.size, "the symbols' names");
  for (std::uint64_t offset = 0; offset < symbols.size(); offset += sizeof(macho::Symbol)) {
    const auto symbol = symbols.read<macho::Symbol>(offset);
    if ((symbol.type & (macho::symbolDebuggerMask | macho::symbolPrivate)) != 0 ||
        (symbol.type & macho::symbolExternal) == 0) {
      continue;
    }
    const unsigned kind = symbol.type & macho::symbolKindMask;
    if (kind == macho::symbolInSection) {
      collector.add(text.text(symbol.name), symbol.value - layout.lowest);
    } else if (kind == macho::symbolAbsolute) {
      collector.addAbsolute(text.text(symbol.name), symbol.value);
    }
  }
}

}  // namespace

ExportedSymbols readExportedSymbols(const Bytes& file, const Layout& layout, std::byte* header) {
  Collector collector(layout, header);
  if (layout.exports) {
    if (layout.exports->size != 0) {
      const Bytes trie =
          file.part(layout.exports->offset, layout.exports->size, "the exports trie");
      TrieReader(trie, collector).read();
    }
  } else if (layout.symbolTable) {
    readTable(file, layout, collector);
  }
  return std::move(collector.symbols);
}

}  // namespace tinmac
