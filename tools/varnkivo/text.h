// Texts on their way out: valid UTF-8, nothing that moves a terminal's cursor, times in UTC, words safe in a shell.
#pragma once

#include <cstdint>
#include <string>

namespace kivotool {

/// `text` with every byte that is not part of valid UTF-8 replaced by U+FFFD.
std::string Utf8(const std::string& text);
/// Bytes of the character at `at` of valid UTF-8 if a terminal obeys it instead of showing it: a control character, or
/// one that turns the direction of what follows. Sets `code` to its number. 0: an ordinary character.
std::size_t SteeringLength(const std::string& text, std::size_t at, unsigned& code);
/// Utf8(text) with steering characters written as \xNN or \uNNNN: what a server or a file says never steers the
/// terminal.
std::string Printable(const std::string& text);
/// Printable(text) in quotation marks, cut after 60 bytes.
std::string QuotedInBrief(const std::string& text);
/// Whether there is a control character of ASCII in `text`.
bool HasControls(const std::string& text);
/// "2026-11-21T14:00:00Z"; empty when the year has more than four digits.
std::string Rfc3339(std::int64_t epoch);
/// `word` as it stands if a shell takes it for one plain word, else in single quotes.
std::string ShellWord(const std::string& word);

}  // namespace kivotool
