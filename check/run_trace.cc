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
  m_Record = number == 0 ? "-"
                         : "r" + std::to_string(number) + " " + Safe(table) +
                               ":" + std::to_string(table_line);
}

void RunTrace::SetMessage(int n) {
  m_Message = n;
}

std::string RunTrace::Gutter() const {
  // The write right after a template line is announced is that line; any
  // other write is a message of formfill's.
  std::string gutter =
      m_LineDue && m_File != nullptr
          ? Safe(*m_File) + ":" + std::to_string(m_LineNumber)
          : "message" + (m_Message >= 0 ? " " + std::to_string(m_Message)
                                        : std::string());
  gutter += " " + m_Record;
  if (gutter.size() < kGutterWidth)
    gutter.resize(kGutterWidth, ' ');
  return gutter;
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
  for (size_t k = 0; k < n; ++k) {
    if (m_Text.empty() && m_TextGutter.empty()) {
      m_TextGutter = Gutter();
    }
    if (text[k] == L'\n') {
      EndLine(true);
      ++lines;
    } else {
      m_Text.push_back(text[k]);
    }
  }
  m_LineDue = false;
  return lines;
}

void RunTrace::EndLine(bool line_feed) {
  if (m_Out != nullptr) {
    *m_Out << m_TextGutter << " | ";
    try {
      *m_Out << ToUtf8(m_Text);
    } catch (const std::range_error&) {
      // formfill stops at such a character before writing it.
    }
    if (line_feed)
      *m_Out << '\n';
  }
  m_Text.clear();
  m_TextGutter.clear();
}

void RunTrace::Finish() {
  if (!m_Text.empty() || !m_TextGutter.empty()) {
    EndLine(false);
  }
  if (m_Out != nullptr)
    m_Out->flush();
}
