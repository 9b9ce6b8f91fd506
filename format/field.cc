#include "format/field.h"

#include <memory>
#include <string>

namespace {

// The blanks that a value loses at its end.
constexpr wchar_t kTrailingBlanks[] = L" \t\r\n";

}  // namespace

Field::Field(long number)
    : m_Read(0), m_SavePut(0), m_Number(number), m_Mac(0) {}

uint64_t Field::LenToEnd() const {
  return static_cast<uint64_t>(m_Value.size()) - static_cast<uint64_t>(m_Read);
}

int Field::Ostatok() const {
  // A GoPosPut may have cut the value behind the read position; nothing is
  // left to read then.
  const size_t size = m_Value.size();
  int count = 0;
  for (size_t i = static_cast<size_t>(m_Read);
       i < size && m_Value[i] != kValueSeparator; ++i) {
    ++count;
  }
  return count;
}

void Field::Clear() {
  m_Read = 0;
  m_SavePut = 0;
  m_Value.clear();
}

wchar_t Field::GetSym() {
  if (m_Read < static_cast<int64_t>(m_Value.size())) {
    return m_Value[static_cast<size_t>(m_Read++)];
  }
  return 0;
}

void Field::ReturnSym() {
  if (m_Read > 0)
    --m_Read;
}

void Field::DelSeparator() {
  if (m_Read < static_cast<int64_t>(m_Value.size()) &&
      m_Value[static_cast<size_t>(m_Read)] == kValueSeparator) {
    ++m_Read;
  }
}

void Field::GoPosPut() {
  if (m_SavePut < static_cast<int64_t>(m_Value.size())) {
    m_Value.resize(static_cast<size_t>(m_SavePut));
  }
}

void Field::TrimRight() {
  const size_t last = m_Value.find_last_not_of(kTrailingBlanks);
  m_Value.erase(last == std::wstring::npos ? 0 : last + 1);
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
  return true;
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
  return at(n)->m_Mac == c;
}

bool FieldTab::ExistOst(long n) {
  if (count(n) == 0)
    return false;
  return at(n)->Exist();
}

bool FieldTab::SetCurrent(long n) {
  if (count(n) == 0) {
    m_Current = nullptr;
    return false;
  }
  m_Current = at(n);
  return true;
}

bool FieldTab::SetCurrentMac(wchar_t c) {
  static_cast<void>(m_MacList.find(c));
  for (auto& entry : *this) {
    if (entry.second->m_Mac == c) {
      m_Current = entry.second;
      return true;
    }
  }
  return false;
}

wchar_t FieldTab::GetSym() {
  return m_Current != nullptr ? m_Current->GetSym() : 0;
}

void FieldTab::ReturnSym() {
  if (m_Current != nullptr)
    m_Current->ReturnSym();
}

int FieldTab::Ostatok() {
  return m_Current != nullptr ? m_Current->Ostatok() : 0;
}

void FieldTab::PutSym(wchar_t c) {
  if (m_Current != nullptr)
    m_Current->PutSym(c);
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

void FieldTab::DelSeparator() {
  if (m_Current != nullptr)
    m_Current->DelSeparator();
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
  for (auto& entry : *this) {
    if (entry.second->Exist())
      return true;
  }
  return false;
}

void FieldTab::Clear() {
  for (auto& entry : *this)
    entry.second->Clear();
}

void FieldTab::First() {
  for (auto& entry : *this)
    entry.second->First();
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
  for (auto& entry : *this)
    entry.second->TrimRight();
}

int64_t FieldTab::AllOst() {
  int64_t total = 0;
  for (auto& entry : *this) {
    total += static_cast<int64_t>(entry.second->m_Value.size()) -
             entry.second->m_Read;
  }
  return total;
}

void FieldTab::freeAll() {
  for (auto& entry : *this) {
    delete entry.second;
    entry.second = nullptr;
  }
  clear();
  // The current field was one of those just deleted.
  m_Current = nullptr;
}
