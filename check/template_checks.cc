// Every section of the template, read and classified with the engine's own
// functions, every problem reported rather than the first.
#include <algorithm>
#include <cwctype>
#include <fstream>
#include <iterator>
#include <vector>

#include "check/sections.h"
#include "check/static_checks.h"
#include "format/field.h"
#include "template/classify.h"
#include "template/line.h"
#include "textio/helpers.h"
#include "textio/utf8.h"

namespace {

std::string Bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

namespace {

bool IsWordChar(wchar_t c) {
  return std::iswalnum(static_cast<wint_t>(c)) != 0 || c > 0x7F;
}

// The record and header references of an expanded line: their stretches
// that run over words because no "?" closes them, the page counter, and
// "@D"/"@T" that begin a word.
// A record or header reference at i; returns the index its stretch ends
// before. Its stretch must not run on over words unless a "?" closes it.
size_t CheckStretch(CheckState& s, const std::string& file, long line,
                    const std::wstring& text, size_t i) {
  const size_t n = text.size();
  const wchar_t c = text[i];
  size_t k = i + 1 + (text[i + 1] == c);
  while (k < n && IsDigit(text[k]))
    ++k;
  const size_t number_end = k;
  if (k < n && (text[k] == L'=' || text[k] == L'>'))
    ++k;
  size_t stop = k;
  while (stop < n && text[stop] != L'?' && text[stop] != L'$' &&
         text[stop] != L'&')
    ++stop;
  bool words = false;
  for (size_t j = k; j < stop; ++j)
    words = words || IsWordChar(text[j]);
  if (words && (stop == n || text[stop] != L'?')) {
    s.Add(file, line, static_cast<long>(i + 1), Severity::kWarning,
          "the stretch of " + SafeUtf8(text.substr(i, number_end - i)) +
              " runs on over \"" + SafeUtf8(text.substr(k, stop - k)) +
              "\": without a \"?\" to close it, the value is placed over "
              "that text" +
              std::string(c == L'&' ? " (and a header stretch blanks it)" : ""),
          "open-stretch");
  }
  return stop;
}

// A run of "#" at i: the page counter, which a line that speaks of pages
// means and another most likely does not.
void CheckPageCounter(CheckState& s, const std::string& file, long line,
                      const std::wstring& text, size_t i) {
  std::wstring lower;
  for (wchar_t w : text)
    lower.push_back(static_cast<wchar_t>(std::towlower(static_cast<wint_t>(w))));
  bool page = false;
  for (const wchar_t* word : {L"page", L"seite", L"стр", L"лист", L"sheet"})
    page = page || lower.find(word) != std::wstring::npos;
  s.Add(file, line, static_cast<long>(i + 1),
        page ? Severity::kNote : Severity::kWarning,
        "\"#\" is the page counter: formfill prints the page number here",
        "page-counter");
}

void CheckMarkers(CheckState& s, const std::string& file, long line,
                  const std::wstring& text) {
  const size_t n = text.size();
  for (size_t i = 0; i < n; ++i) {
    const wchar_t c = text[i];
    const wchar_t d = i + 1 < n ? text[i + 1] : 0;
    if ((c == L'$' || c == L'&') &&
        (IsDigit(d) || (d == c && i + 2 < n && IsDigit(text[i + 2])))) {
      const size_t stop = CheckStretch(s, file, line, text, i);
      i = stop > i ? stop - 1 : i;
    } else if (c == L'#') {
      CheckPageCounter(s, file, line, text, i);
      while (i + 1 < n && text[i + 1] == L'#')
        ++i;
    } else if (c == L'@' && (d == L'D' || d == L'T') && i + 2 < n &&
               IsWordChar(text[i + 2])) {
      s.Add(file, line, static_cast<long>(i + 1), Severity::kWarning,
            std::string("\"@") + static_cast<char>(d) + "\" is the current " +
                (d == L'D' ? "date" : "date and time") +
                ": formfill prints it in place of \"@" +
                static_cast<char>(d) + "\" here",
            "value-marker");
    }
  }
}

}  // namespace

namespace {

// The width a line takes with its tabs expanded, uncut.
size_t ExpandedWidth(const std::wstring& raw) {
  const size_t keep = Line::KeptLength(raw.c_str(), raw.size());
  size_t width = 0;
  for (size_t k = 0; k < keep && raw[k] != 0; ++k)
    width += raw[k] == L'\t' ? 8 - k % 8 : 1;
  return width;
}

// A tab after an earlier one lands where its place in the line as written
// says, not on the next tab stop of what is printed.
void CheckTabs(CheckState& s, const std::string& file, long line,
               const std::wstring& raw) {
  size_t out = 0;
  for (size_t k = 0; k < raw.size() && raw[k] != L'\n'; ++k) {
    if (raw[k] != L'\t') {
      ++out;
      continue;
    }
    const size_t lands = out + 8 - k % 8;
    if (lands % 8 != 0) {
      s.Add(file, line, static_cast<long>(k + 1), Severity::kWarning,
            "this tab ends at column " + std::to_string(lands + 1) +
                ", not on a tab stop: formfill counts tab stops from the "
                "tab's place in the line as written; use blanks",
            "tab");
      return;
    }
    out = lands;
  }
}

// "@N" header values of an expanded line ("@@N" takes a record value).
void HeaderValues(CheckState& s, const std::string& file, long line, int n,
                  const std::wstring& text) {
  for (size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] != L'@')
      continue;
    if (text[i + 1] == L'@' && i + 2 < text.size() && IsDigit(text[i + 2])) {
      for (i += 2; i < text.size() && IsDigit(text[i]); ++i) {
      }
      continue;
    }
    if (IsDigit(text[i + 1])) {
      const long field = std::wcstol(text.c_str() + i + 1, nullptr, 10);
      s.header_uses.emplace(field,
                            Use{file, line, static_cast<long>(i + 1), n});
    }
  }
}

// Whether the marker at column c of raw is a reference that the line's
// printing fills in ("$N", "&N", "@@N"), rather than the first of a pair
// ("$$N", "&&N", "@$N") or a character of text that the load only reads.
bool Reference(const std::wstring& raw, size_t c) {
  const wchar_t next = c + 1 < raw.size() ? raw[c + 1] : 0;
  if (raw[c] == L'@') {
    return next == L'@' && c + 2 < raw.size() && IsDigit(raw[c + 2]);
  }
  return IsDigit(next);
}

void TextLine(CheckState& s, const std::string& file, long line, int n,
              const std::wstring& raw) {
  const TextScan scan = ScanTextLine(raw.c_str());
  for (const RecordUse& use : scan.records) {
    if (!Reference(raw, use.column))
      continue;
    s.record_uses.emplace(use.field, Use{file, line,
                                         static_cast<long>(use.column + 1), n});
    s.section_records[n - 1].insert(use.field);
  }
  for (const HeaderText& text : scan.headers) {
    if (!Reference(raw, text.column))
      continue;
    s.header_uses.emplace(text.field, Use{file, line,
                                          static_cast<long>(text.column + 1), n});
    bool gives = false;
    for (const HeaderPiece& piece : text.pieces) {
      gives = gives || piece.kind != HeaderPiece::kText ||
              piece.text.find_first_not_of(L' ') != std::wstring::npos;
      if (piece.kind == HeaderPiece::kCopy)
        s.header_uses.emplace(piece.field, Use{file, line,
                                               static_cast<long>(text.column + 1), n});
    }
    if (gives)
      s.template_header.insert(text.field);
    std::wstring words;
    for (const HeaderPiece& piece : text.pieces)
      words += piece.kind == HeaderPiece::kText ? piece.text : L"";
    if (std::any_of(words.begin(), words.end(), IsWordChar)) {
      s.header_words.emplace(
          text.field,
          std::make_pair(Use{file, line, static_cast<long>(text.column + 1), n},
                         SafeUtf8(words)));
    }
  }
  wchar_t expanded[kLineBuf];
  Line::DelTab(raw.c_str(), expanded);
  HeaderValues(s, file, line, n, expanded);
  CheckMarkers(s, file, line, expanded);
}

// A ">" line, with what the load would say of it.
void CommandLine(CheckState& s, const std::string& file, long line,
                 const std::wstring& raw, std::vector<Line>& lines, int index) {
  Command command = ClassifyCommand(raw.c_str());
  Line& entry = lines[static_cast<size_t>(index)];
  entry.kind = command.kind;
  entry.link = command.number;
  int message = command.message;
  if (message < 0 && command.kind == Line::Label &&
      FindLabel(lines.data(), index, command.number) < index) {
    message = 3;
  }
  if (message < 0 && command.kind == Line::Define) {
    FieldTab header;
    FieldTab record;
    message = DefineMessage(command, header, record);
    entry.kind = Line::Text;
  }
  if (message < 0)
    return;
  static const char* const kWhy[] = {
      "the jump's table character must be $ or & and its condition ^ or nothing",
      "a repeated block has 1 to 100 lines",
      "a block is repeated 1 to 1000 times",
      "the label is defined twice in this section",
      "formfill refuses every macro definition",
      "no command starts like this (\"jump to\", \"repeat\", a label)"};
  s.Add(file, line, 1, Severity::kError,
        std::string(kWhy[message]) + ": formfill stops loading the section "
        "with " + FormfillMessage(message),
        "load-error");
  s.no_run = true;
  entry.kind = Line::Text;  // a line that failed is no label nor jump
}

void Jumps(CheckState& s, const Sections& sections, int n,
           const std::vector<Line>& lines) {
  const std::string& file = sections.Name(n);
  const int count = static_cast<int>(lines.size());
  std::set<long> targets;
  for (int k = 0; k < count; ++k) {
    if (lines[k].kind != Line::Jump)
      continue;
    targets.insert(lines[k].link);
    if (FindLabel(lines.data(), count, lines[k].link) == count) {
      s.Add(file, sections.LineOf(n, k), 1, Severity::kError,
            "no label " + std::to_string(lines[k].link) +
                " in this section: formfill stops loading it with " +
                FormfillMessage(6),
            "load-error");
      s.no_run = true;
    }
  }
  for (int k = 0; k < count; ++k) {
    if (lines[k].kind == Line::Label && targets.count(lines[k].link) == 0) {
      s.Add(file, sections.LineOf(n, k), 1, Severity::kNote,
            "nothing jumps to label " + std::to_string(lines[k].link),
            "unused-label");
    }
  }
}

void CheckSection(CheckState& s, const Sections& sections, int n) {
  const std::string& file = sections.Name(n);
  const std::string bytes = Bytes(file);
  std::ifstream probe(file);
  s.section_exists[n - 1] = static_cast<bool>(probe);
  if (!s.section_exists[n - 1])
    return;
  if (bytes.rfind("\xEF\xBB\xBF", 0) == 0) {
    s.Add(file, 1, 1, Severity::kWarning,
          std::string("the file begins with a byte-order mark, which formfill "
                      "reads as a character of the first line") +
              (bytes.size() > 3 && bytes[3] == '>'
                   ? ": the command there becomes a line of text"
                   : ""),
          "bom");
  }
  CheckEncoding(s, file, "a template");
  const int count = sections.Count(n);
  std::vector<Line> lines(static_cast<size_t>(count), Line{});
  for (int k = 0; k < count; ++k) {
    const std::wstring& raw = sections.Text(n, k);
    const long line = sections.LineOf(n, k);
    const bool cut = (raw.empty() || raw.back() != L'\n') && k + 1 < count;
    if (ExpandedWidth(raw) > static_cast<size_t>(kMaxLine) || cut) {
      s.Add(file, line, kMaxLine + 1, Severity::kWarning,
            "the line is longer than 4095 characters (tabs expanded): "
            "formfill cuts it there",
            "long-line");
    }
    CheckTabs(s, file, line, raw);
    if (raw[0] == L'>')
      CommandLine(s, file, line, raw, lines, k);
    else
      TextLine(s, file, line, n, raw);
  }
  Jumps(s, sections, n, lines);
}

}  // namespace

void CheckTemplate(CheckState& state) {
  const Options& o = state.options;
  const Sections sections(o.path, o.blank);
  for (int n = 1; n <= 3; ++n) {
    CheckSection(state, sections, n);
  }
  if (!state.section_exists[0]) {
    state.Add(sections.Name(1), 1, 1, Severity::kError,
              "section 1 cannot be read: formfill stops with " +
                  FormfillMessage(11),
              "missing-file");
    state.no_run = true;
  }
  if (!state.section_exists[2]) {
    state.Add("", 0, 0, Severity::kNote,
              "there is no " + sections.Name(3) +
                  ": the document has no closing text",
              "no-closing");
  }
}
