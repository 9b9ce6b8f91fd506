// The field store: numbered value buffers with a read cursor, and the table
// of them that passes values from the table reader to the line formatter.
#ifndef FORMFILL_FORMAT_FIELD_H_
#define FORMFILL_FORMAT_FIELD_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Stands between successive values within one field.
constexpr wchar_t kValueSeparator = L'\x01';

// One value buffer. Unread text runs from the read position to the end;
// what is left there is the field's remainder (Ostatok), carried on to the
// field's next reference.
class Field {
 public:
  explicit Field(long number);
  ~Field();

  // A copy would be a second field with the same binding; none is made.
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;

  // True while unread text remains.
  bool Exist() const { return m_Read < static_cast<int64_t>(m_Value.size()); }
  uint64_t LenToEnd() const;
  // Ostatok: characters from the read position to the next separator or the end.
  int Ostatok() const;
  void Clear();
  void First() { m_Read = 0; }
  // The next unread character, or 0 at the end (the position stays).
  wchar_t GetSym() {
    if (m_Read < static_cast<int64_t>(m_Value.size())) {
      return m_Value[static_cast<size_t>(m_Read++)];
    }
    return 0;
  }
  void ReturnSym() {
    if (m_Read > 0)
      --m_Read;
  }
  // Steps over a separator at the read position.
  void DelSeparator() {
    if (m_Read < static_cast<int64_t>(m_Value.size()) &&
        m_Value[static_cast<size_t>(m_Read)] == kValueSeparator) {
      ++m_Read;
    }
  }
  void SavPosPut() { m_SavePut = static_cast<int64_t>(m_Value.size()); }
  // Drops what was appended since SavPosPut.
  void GoPosPut();
  void PutSym(wchar_t c) { m_Value.push_back(c); }
  void PutStr(const wchar_t* s) { m_Value.append(s); }
  // Appends n characters, nulls included.
  void PutRun(const wchar_t* s, size_t n) { m_Value.append(s, n); }
  // The unread text, n characters from the read position on (none when
  // the value was cut back behind the read position).
  const wchar_t* Unread(size_t& n) const {
    const size_t read = static_cast<size_t>(m_Read);
    n = read < m_Value.size() ? m_Value.size() - read : 0;
    return m_Value.data() + (n != 0 ? read : m_Value.size());
  }
  // Steps the read position over n characters of the unread text, as n
  // GetSym calls would.
  void Skip(size_t n) { m_Read += static_cast<int64_t>(n); }
  // Removes trailing " \t\r\n".
  void TrimRight();

  // The macro character bound to the field; 0 for none.
  wchar_t Mac() const { return m_Mac; }
  // Binds c (0: unbinds). Nothing in the program binds a character: the
  // template's declarations are refused. The count of bound fields kept
  // here lets the line formatter skip its two macro lookups for every
  // character while no field anywhere is bound, which is always.
  void SetMac(wchar_t c);
  static long BoundCount() { return s_Bound; }

  int64_t m_Read;
  int64_t m_SavePut;
  long m_Number;

 private:
  wchar_t m_Mac;
  // Live fields whose macro character is not 0.
  static long s_Bound;

 public:
  std::wstring m_Value;
};

// Fields by number, with one current field on which most operations act.
// Owns its fields.
class FieldTab : public std::map<long, Field*> {
 public:
  FieldTab();
  virtual ~FieldTab();

  FieldTab(const FieldTab&) = delete;
  FieldTab& operator=(const FieldTab&) = delete;

  // False when n exists already (nothing changes); the current field stays.
  bool InsertField(long n);
  // Creates field n if needed and returns whether its macro character is c.
  // The character is never stored, so only c == 0 can give true; template
  // macro declarations rely on that.
  bool InsertFieldMac(long n, wchar_t c);
  // Whether field n exists and has unread text.
  bool ExistOst(long n) {
    const Field* field = Find(n);
    return field != nullptr && field->Exist();
  }
  // Makes field n current; false (and no current field) when n is missing.
  bool SetCurrent(long n) {
    m_Current = Find(n);
    return m_Current != nullptr;
  }
  // Makes the first field whose macro character is c current; false leaves
  // the current field as it was.
  bool SetCurrentMac(wchar_t c);

  // Operations on the current field; they do nothing (or give 0) without one.
  // The line formatter and the table reader call the short ones for every
  // character, hence inline.
  wchar_t GetSym() { return m_Current != nullptr ? m_Current->GetSym() : 0; }
  void ReturnSym() {
    if (m_Current != nullptr)
      m_Current->ReturnSym();
  }
  int Ostatok() { return m_Current != nullptr ? m_Current->Ostatok() : 0; }
  void PutSym(wchar_t c) {
    if (m_Current != nullptr)
      m_Current->PutSym(c);
  }
  void PutStr(const wchar_t* s);
  void PutRun(const wchar_t* s, size_t n) {
    if (m_Current != nullptr && n != 0)
      m_Current->PutRun(s, n);
  }
  // Trims a non-empty current value and appends a separator.
  void InsSeparator();
  void DelSeparator() {
    if (m_Current != nullptr)
      m_Current->DelSeparator();
  }
  void SavPosPut();
  void GoPosPut();
  void ClearField();
  void DelEndBlankField();

  // Operations on every field.
  bool Exist();
  void Clear();
  void First();
  void First(long n);
  // Field n's value up to its first separator; "" when n is missing.
  std::wstring FirstValue(long n);
  void DelEndBlank();
  // Total unread characters over all fields.
  int64_t AllOst();
  void freeAll();

  Field* m_Current;
  std::wstring m_MacList;

 private:
  // The fields in ascending number, for the operations on every field:
  // the template logic asks after every printed line how much is left,
  // and a walk over a vector costs a fraction of one over the map's
  // nodes. Kept in step by InsertField and freeAll, and made afresh should
  // the map have been changed around them; so is m_ByNumber.
  const std::vector<Field*>& Fields() {
    if (m_Order.size() != size()) {
      Reindex();
    }
    return m_Order;
  }
  void Reindex();
  // Field n, or null when there is none. Asked for every selector of the
  // table, every reference of every printed line and every conditional
  // jump, hence the lookup by number inline.
  Field* Find(long n) {
    if (n >= 0 && n < kDirect && m_Order.size() == size()) {
      return static_cast<size_t>(n) < m_ByNumber.size()
                 ? m_ByNumber[static_cast<size_t>(n)]
                 : nullptr;
    }
    return FindIndexed(n);
  }
  // Find once the indexes are made afresh, or for a number above them.
  Field* FindIndexed(long n);
  std::vector<Field*> m_Order;
  // Where Exist last found a field with text; only an order to look in.
  size_t m_ExistHint = 0;
  // The fields numbered below kDirect by their number (null for a missing
  // one), up to the highest such number: SetCurrent is asked for every
  // selector of the table and every reference of every printed line, and
  // forms number their fields from 1 up.
  static constexpr long kDirect = 256;
  std::vector<Field*> m_ByNumber;
};

#endif  // FORMFILL_FORMAT_FIELD_H_
