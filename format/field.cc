#include "format/field.h"

#include <cwchar>
#include <memory>
#include <string>

namespace {

// The blanks that a value loses at its end.
bool IsTrailingBlank(wchar_t c) {
  // One test of a bit: this runs at every line end of the table.
  constexpr uint64_t kBlanks = uint64_t{1} << L' ' | uint64_t{1} << L'\t' |
                               uint64_t{1} << L'\r' | uint64_t{1} << L'\n';
  const uint32_t code = static_cast<uint32_t>(c);
  return code <= L' ' && ((kBlanks >> code) & 1u) != 0;
}

}  // namespace

long Field::s_Bound = 0;

Field::Field(long number)
    : m_Read(0), m_SavePut(0), m_Number(number), m_Mac(0) {}

Field::~Field() {
  SetMac(0);
}

void Field::SetMac(wchar_t c) {
  s_Bound += (c != 0) - (m_Mac != 0);
  m_Mac = c;
}

uint64_t Field::LenToEnd() const {
  return static_cast<uint64_t>(m_Value.size()) - static_cast<uint64_t>(m_Read);
}

int Field::Ostatok() const {
  // A GoPosPut may have cut the value behind the read position; nothing is
  // left to read then.
  const size_t size = m_Value.size();
  const size_t read = static_cast<size_t>(m_Read);
  if (read >= size)
    return 0;
  // The library's search, much faster than a plain loop.
  const size_t left = size - read;
  const wchar_t* from = m_Value.data() + read;
  const wchar_t* separator = std::wmemchr(from, kValueSeparator, left);
  return static_cast<int>(
      separator != nullptr ? static_cast<size_t>(separator - from) : left);
}

void Field::Clear() {
  m_Read = 0;
  m_SavePut = 0;
  m_Value.clear();
}

void Field::GoPosPut() {
  if (m_SavePut < static_cast<int64_t>(m_Value.size())) {
    m_Value.resize(static_cast<size_t>(m_SavePut));
  }
}

void Field::TrimRight() {
  // Runs at every line end of the table and on every field of every
  // record, where there is mostly nothing to trim: a plain loop from the
  // end costs less than the library's general search.
  size_t keep = m_Value.size();
  while (keep > 0 && IsTrailingBlank(m_Value[keep - 1])) {
    --keep;
  }
  if (keep < m_Value.size()) {
    m_Value.erase(keep);
  }
}

FieldTab::FieldTab() : m_Current(nullptr) {}

FieldTab::~FieldTab() {
  freeAll();
}

bool FieldTab::InsertField(long n) {
  if (count(n) != 0)
    return false;
  auto field = std::make_unique<Field>(n);
  emplace(n, field.get());
  field.release();
  m_Order.clear();
  return true;
}

void FieldTab::Reindex() {
  m_Order.clear();
  m_ByNumber.clear();
  for (const auto& entry : *this) {
    m_Order.push_back(entry.second);
    if (entry.first >= 0 && entry.first < kDirect) {
      m_ByNumber.resize(static_cast<size_t>(entry.first) + 1, nullptr);
      m_ByNumber[static_cast<size_t>(entry.first)] = entry.second;
    }
  }
}

bool FieldTab::InsertFieldMac(long n, wchar_t c) {
  if (count(n) == 0) {
    InsertField(n);
  }
  // The macro character is compared, never stored: the template loader
  // refuses every macro declaration because of this, and templates written
  // for it print their macro symbols as plain text. Changing it would
  // change those documents.
  static_cast<void>(m_MacList.find(c));
  return at(n)->Mac() == c;
}

Field* FieldTab::FindIndexed(long n) {
  if (n >= 0 && n < kDirect) {
    Fields();
    return static_cast<size_t>(n) < m_ByNumber.size()
               ? m_ByNumber[static_cast<size_t>(n)]
               : nullptr;
  }
  const auto entry = find(n);
  return entry != end() ? entry->second : nullptr;
}

bool FieldTab::SetCurrentMac(wchar_t c) {
  static_cast<void>(m_MacList.find(c));
  for (auto& entry : *this) {
    if (entry.second->Mac() == c) {
      m_Current = entry.second;
      return true;
    }
  }
  return false;
}

void FieldTab::PutStr(const wchar_t* s) {
  if (m_Current != nullptr)
    m_Current->PutStr(s);
}

void FieldTab::InsSeparator() {
  if (m_Current == nullptr || m_Current->m_Value.empty())
    return;
  // A value of blanks only still gets its separator, so that the values
  // after it keep their places.
  m_Current->TrimRight();
  m_Current->PutSym(kValueSeparator);
}

void FieldTab::SavPosPut() {
  if (m_Current != nullptr)
    m_Current->SavPosPut();
}

void FieldTab::GoPosPut() {
  if (m_Current != nullptr)
    m_Current->GoPosPut();
}

void FieldTab::ClearField() {
  if (m_Current != nullptr)
    m_Current->Clear();
}

void FieldTab::DelEndBlankField() {
  if (m_Current != nullptr)
    m_Current->TrimRight();
}

bool FieldTab::Exist() {
  // Asked after every printed line; while a record is printed, the field
  // found with text last time mostly still has some, so it is looked at
  // first.
  const std::vector<Field*>& fields = Fields();
  if (m_ExistHint < fields.size() && fields[m_ExistHint]->Exist()) {
    return true;
  }
  for (size_t k = 0; k < fields.size(); ++k) {
    if (fields[k]->Exist()) {
      m_ExistHint = k;
      return true;
    }
  }
  return false;
}

void FieldTab::Clear() {
  for (Field* field : Fields())
    field->Clear();
}

void FieldTab::First() {
  for (Field* field : Fields())
    field->First();
}

void FieldTab::First(long n) {
  if (count(n) != 0)
    at(n)->First();
}

std::wstring FieldTab::FirstValue(long n) {
  if (count(n) == 0)
    return std::wstring();
  const std::wstring& value = at(n)->m_Value;
  return value.substr(0, value.find(kValueSeparator));
}

void FieldTab::DelEndBlank() {
  for (Field* field : Fields())
    field->TrimRight();
}

int64_t FieldTab::AllOst() {
  int64_t total = 0;
  for (const Field* field : Fields()) {
    total += static_cast<int64_t>(field->m_Value.size()) - field->m_Read;
  }
  return total;
}

void FieldTab::freeAll() {
  for (auto& entry : *this) {
    delete entry.second;
    entry.second = nullptr;
  }
  clear();
  m_Order.clear();
  m_ByNumber.clear();
  // The current field was one of those just deleted.
  m_Current = nullptr;
}
