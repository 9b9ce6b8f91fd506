#include "check/run_trace.h"

#include <cwchar>
#include <stdexcept>

#include "textio/utf8.h"

namespace {

// Gutters are padded to this width, so that the document's text lines up.
constexpr size_t kGutterWidth = 36;

// A name in the gutter never holds the separator.
std::string Safe(std::string text) {
  for (char& c : text) {
    if (c == '|')
      c = '!';
  }
  return text;
}

}  // namespace

void RunTrace::SetRecord(long number, const std::string& table,
                         long table_line) {
  m_GutterDue = true;
  m_Record = number == 0 ? "-"
                         : "r" + std::to_string(number) + " " + Safe(table) +
                               ":" + std::to_string(table_line);
}

void RunTrace::SetMessage(int n) {
  m_Message = n;
}

const std::string& RunTrace::Gutter() {
  if (!m_GutterDue && m_GutterFile == m_File && m_GutterLine == m_LineNumber &&
      m_GutterMessage == m_Message && m_GutterLineDue == m_LineDue) {
    return m_Gutter;
  }
  m_GutterDue = false;
  m_GutterFile = m_File;
  m_GutterLine = m_LineNumber;
  m_GutterMessage = m_Message;
  m_GutterLineDue = m_LineDue;
  // The write right after a template line is announced is that line; any
  // other write is a message of formfill's.
  m_Gutter = m_LineDue && m_File != nullptr
                 ? Safe(*m_File) + ":" + std::to_string(m_LineNumber)
                 : "message" + (m_Message >= 0 ? " " + std::to_string(m_Message)
                                               : std::string());
  m_Gutter += " " + m_Record;
  if (m_Gutter.size() < kGutterWidth)
    m_Gutter.resize(kGutterWidth, ' ');
  m_Gutter += " | ";
  return m_Gutter;
}
long RunTrace::Count(const wchar_t* text, size_t n) {
  long lines = 0;
  for (const wchar_t* end = text + n;
       (text = std::wmemchr(text, L'\n', static_cast<size_t>(end - text))) !=
       nullptr;
       ++text) {
    ++lines;
  }
  m_LineDue = false;
  return lines;
}

long RunTrace::Write(const wchar_t* text, size_t n) {
  if (m_Out == nullptr) {
    return Count(text, n);
  }
  long lines = 0;
  for (size_t k = 0; k < n;) {
    if (!m_Open) {
      m_TextGutter = Gutter();
      m_Open = true;
    }
    const wchar_t* end = std::wmemchr(text + k, L'\n', n - k);
    const size_t stop = end != nullptr ? static_cast<size_t>(end - text) : n;
    m_Text.append(text + k, stop - k);
    k = stop;
    if (end != nullptr) {
      EndLine(true);
      ++lines;
      ++k;
    }
  }
  m_LineDue = false;
  return lines;
}

void RunTrace::EndLine(bool line_feed) {
  m_Bytes = m_TextGutter;
  try {
    AppendUtf8(m_Text.data(), m_Text.size(), m_Bytes);
  } catch (const std::range_error&) {
    // formfill stops at such a character before writing it.
  }
  if (line_feed)
    m_Bytes.push_back('\n');
  m_Out->write(m_Bytes.data(), static_cast<std::streamsize>(m_Bytes.size()));
  m_Text.clear();
  m_Open = false;
}

void RunTrace::Finish() {
  if (m_Open) {
    EndLine(false);
  }
  if (m_Out != nullptr)
    m_Out->flush();
}
