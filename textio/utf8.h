// UTF-8 conversion of whole strings, used for file names, the document and
// the message catalogue. The results match the standard library's
// codecvt_utf8<wchar_t> facet (as shipped with libstdc++) byte for byte, so
// documents written by earlier builds that used the facet stay identical.
#ifndef FORMFILL_TEXTIO_UTF8_H_
#define FORMFILL_TEXTIO_UTF8_H_

#include <string>

// Writes the UTF-8 form of text[0..len) to out, which must have room for
// 4 * len bytes, and sets *written to the number of bytes. False at a
// character above U+10FFFF (or negative): out then holds the bytes of the
// characters before it. Code points U+D800..U+DFFF are written as ordinary
// three-byte sequences.
bool EncodeUtf8(const wchar_t* text, size_t len, char* out, size_t* written);

// Appends the UTF-8 form of text[0..len) to out. Code points U+D800..U+DFFF
// are written as ordinary three-byte sequences. A character above U+10FFFF
// (or negative) throws std::range_error("wstring_convert::to_bytes"); out
// is then left with the bytes of the characters before it.
void AppendUtf8(const wchar_t* text, size_t len, std::string& out);

// The UTF-8 form of text; throws as AppendUtf8 does.
std::string ToUtf8(const std::wstring& text);

// Decodes UTF-8 bytes strictly: overlong forms, values above U+10FFFF,
// stray continuation bytes and bad continuation bytes throw
// std::range_error("wstring_convert::from_bytes"); encoded surrogates are
// accepted. A sequence that the end of the bytes cuts short (its lead byte
// promises more bytes than are left) ends the text: the characters before
// it are returned, whatever the bytes after the lead are.
std::wstring FromUtf8(const std::string& bytes);

#endif  // FORMFILL_TEXTIO_UTF8_H_
