#include "check/sections.h"

#include "check/safe_utf8.h"

#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "template/blank.h"
#include "template/classify.h"
#include "textio/input_file.h"
#include "textio/utf8.h"

namespace {

// The file's bytes, or none.
std::string Bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string NameOf(const std::wstring& file) {
  return SafeUtf8(file);
}

}  // namespace

Sections::Sections(const std::wstring& path, const std::wstring& blank) {
  for (int n = 1; n <= 3; ++n) {
    Read(n, path + blank + L"." + std::to_wstring(n));
  }
}

void Sections::Read(int n, const std::wstring& file) {
  Section& section = m_Sections[n - 1];
  section.name = NameOf(file);
  InputFile in;
  if (section.name == "?" || !in.Open(file.c_str())) {
    return;
  }
  // Entries as the load makes them, one a GetLine; each one's file line is
  // counted from the line feeds before the byte where it starts.
  const std::string bytes = Bytes(section.name);
  // Written by GetLine before it is read: not cleared, one allocation.
  const std::unique_ptr<wchar_t[]> raw(new wchar_t[kRawLineBuf]);
  long line = 1;
  size_t counted = 0;
  for (;;) {
    const long pos = in.GetFilePointer();
    if (!in.GetLine(raw.get(), kMaxLine)) {
      break;
    }
    for (; counted < static_cast<size_t>(pos) && counted < bytes.size();
         ++counted) {
      line += bytes[counted] == '\n';
    }
    section.entries.push_back({line, raw.get()});
    if (raw[0] == L'>' && IsRepeatLine(raw.get())) {
      const Command repeat = ReadRepeat(raw.get());
      if (repeat.repeats > m_MaxRepeat)
        m_MaxRepeat = repeat.repeats;
    }
  }
  m_Entries += static_cast<long>(section.entries.size());
}

const Sections::Section* Sections::Get(int section) const {
  return section >= 1 && section <= 3 ? &m_Sections[section - 1] : nullptr;
}

const std::string& Sections::Name(int section) const {
  static const std::string none = "-";
  const Section* s = Get(section);
  return s != nullptr ? s->name : none;
}

long Sections::LineOf(int section, int index) const {
  const Section* s = Get(section);
  if (s == nullptr || index < 0 ||
      static_cast<size_t>(index) >= s->entries.size()) {
    return 1;
  }
  return s->entries[static_cast<size_t>(index)].line;
}

long Sections::FindLastJump(int section, int index) const {
  const Section* s = Get(section);
  if (s == nullptr || index < 0) {
    return -1;
  }
  const auto& entries = s->entries;
  for (size_t j = static_cast<size_t>(index); j < entries.size(); ++j) {
    const wchar_t* raw = entries[j].text.c_str();
    if (raw[0] != L'>' || !IsJumpLine(raw)) {
      continue;
    }
    const long label = ReadJump(raw).number;
    for (size_t k = 0; k <= static_cast<size_t>(index); ++k) {
      const wchar_t* at = entries[k].text.c_str();
      if (at[0] == L'>' && IsLabelLine(at) && ReadLabel(at).number == label) {
        return static_cast<long>(j);
      }
    }
  }
  return -1;
}

std::string Sections::LastJumpText(int section, int index) const {
  const long j = FindLastJump(section, index);
  if (j < 0) {
    return "";
  }
  const Section& s = m_Sections[section - 1];
  std::wstring text = s.entries[static_cast<size_t>(j)].text;
  while (!text.empty() && (text.back() == L'\n' || text.back() == L' '))
    text.pop_back();
  return "through the jump at " + s.name + ":" +
         std::to_string(s.entries[static_cast<size_t>(j)].line) + " (\"" +
         NameOf(text) + "\")";
}

long Sections::LastJumpLine(int section, int index) const {
  const long j = FindLastJump(section, index);
  return j < 0 ? LineOf(section, index)
               : LineOf(section, static_cast<int>(j));
}
