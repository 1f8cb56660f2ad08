#pragma once
// Track languages and names as an MP4 movie carries them: mdhd holds a language as ISO 639-2/T
// (three lowercase letters packed into 15 bits), hdlr and udta hold a name as UTF-8.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

// The ISO 639-2/T code for a Matroska Language value (ISO 639-2, bibliographic codes such as "ger"
// turned into their terminology twins such as "deu"); "und" for anything that is not three letters.
std::string languageFromIso639(std::string_view code);

// The ISO 639-2/T code for a LanguageBCP47 value ("en-US" is "eng", "zh-Hans" is "zho"), from its
// primary language subtag; "und" when that subtag is no ISO 639 language.
std::string languageFromBcp47(std::string_view tag);

// The mdhd form of a three-letter lowercase code: each letter minus 0x60 in five bits.
std::uint16_t packedLanguage(std::string_view code);

// Text with every byte that does not belong to a well-formed UTF-8 sequence replaced by U+FFFD, so
// that a damaged name cannot reach a box or a caller as invalid UTF-8.
std::string validUtf8(std::string_view text);

// The longest start of text that has at most limit bytes and does not split a UTF-8 sequence.
std::string cutUtf8(std::string_view text, std::size_t limit);

} // namespace qv
