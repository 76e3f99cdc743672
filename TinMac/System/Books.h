#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tinmac {

// The books say what the program owns and which rules it bent. They are written as JSON to
// <pid>.json in the folder that the environment variable TIN_MAC_BOOKS names; without it nothing is
// written. All functions: any thread.

/// `change` objects of a class came; negative: went. More gone than came traps.
void countObjects(std::string_view className, std::int32_t change);
/// How many objects of the class live now.
std::int64_t liveObjects(std::string_view className);

/// The program broke a rule in a way that a Mac survives.
void noteRule(std::string_view rule, std::string_view detail);
/// How often the rule was broken.
std::int64_t notedRules(std::string_view rule);

void noteQueue(std::string_view label, std::string_view qualityOfService);
void noteTrap(std::string_view rule, std::string_view detail);

/// The main loop starts: what lives now is the program's own furniture.
void markBooks();

/// `hook` runs once, on the thread that ends the program, before the books are written. It is not
/// run when a trap ends it.
void beforeBooks(void (*hook)());
/// Runs the hooks and writes the books. Called once, at the end.
void settleBooks(std::int32_t exitStatus);

/// Writes the books as they stand. `reason`: "exit", "trap", "abort" or "signal".
void writeBooks(std::string_view reason, std::optional<std::int32_t> exitStatus = std::nullopt);
/// The books as JSON.
std::string booksText(std::string_view reason, std::optional<std::int32_t> exitStatus);

}  // namespace tinmac
