// What every fuzz target shares: a home folder of its own under the system's temporary folder, the
// input written there as a file (every reader reads files), and the reset of the global state that a
// reader leaves behind, so that each input runs from the same start and a crash replays alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tervo::fuzz {

// Sets the process up once: a fresh home folder with its tree and the standard spectrum, made the
// working folder too, so that whatever a reader or a script writes stays inside it (the error log
// as well); messages go to that log, not to the terminal.  The home folder, with a trailing '/'.
const std::string& Home();

// Writes the input into `relativePath` under the home folder and returns the full path.
std::string WriteInput(const std::uint8_t* data, std::size_t size, const std::string& relativePath);

// Starts the session's messages afresh: the log is emptied at the next message and the list of
// reported messages is cleared, so that neither grows from input to input.
void ResetMessages();

// Puts the program state back to its start-up defaults: the cell, the working points, the action
// settings, and the messages as ResetMessages does.
void ResetProgramState();

} // namespace tervo::fuzz
