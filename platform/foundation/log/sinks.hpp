#pragma once

#include <filesystem>

namespace foundation::log {

/// Where the records go. With no sink at all, Boost.Log writes the bare message to stdout.
///
/// One line a record, the fields parted by one space: local time with microseconds, severity word,
/// channel, id of the writing thread (as the kernel shows it), two blanks for each step of
/// indentation, and the message as it stands:
///
///     2025-03-09 14:07:31.004211 normal yvm::JSClient::YVMAdapter 4711 /yvm/a has requested attach
///
/// Severity words: `detail` (2), `normal` (8), `caught` (16), `enter` (32), `exit` (64),
/// `refused` (512). A sink writes on the thread that logs, line by line.
///
/// To stderr: to what descriptor 2 is at the call, wherever it may be led afterwards.
void addConsoleSink();

/// Appends to the file, which is made if absent. Throws `std::runtime_error` that names the file if it
/// cannot be opened.
void addFileSink(const std::filesystem::path& file);

/// Flushes and removes every sink of the process, also those that were added in other ways.
void removeSinks();

}  // namespace foundation::log
