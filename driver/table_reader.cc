// Reading the input table and the initial-parameters file into the field
// tables of Tbl.
#include <cstdint>
#include <string>

#include "driver/table_observer.h"
#include "driver/tbl.h"
#include "format/field.h"
#include "textio/helpers.h"
#include "textio/input_file.h"

namespace {

TableObserver* g_Observer = nullptr;

// The table's read buffer, in bytes: the table is read from start to end
// once, and a buffer larger than the library's takes a sixteenth of the
// reads.
constexpr size_t kTableBuffer = 64 * 1024;

// How a selector ("&N;" or "$N;") that began with its marker ended.
enum class Selector {
  kSelected,  // ";" followed the digits; the number is known
  kText,      // something else followed: the marker and digits are text
  kEnd,       // the input ended first
};

// The character source and the scanning shared by the three readers. A
// character that ends the digits of a failed selector, or a run of text,
// is held and handed out again by the next Next(), so that it is treated
// like any other. Every character read is told to the observer, if any.
template <wchar_t Marker>
class Scan {
 public:
  Scan(InputFile& in, FieldTab& tab) : m_In(in), m_Tab(tab) {}

  // The next character to handle; false at the end of the input.
  bool Next(wchar_t& ch) {
    if (m_Held) {
      m_Held = false;
      ch = m_HeldCh;
      return true;
    }
    if (!m_Ended && m_In.Get(ch)) {
      return true;
    }
    End();
    return false;
  }

  // Stores ch and the plain text after it in the current field, up to the
  // next character that the readers act on (a line end, an escape, a
  // marker, "@"), which is held for Next(). Plain text is most of a table,
  // and this spares it the dispatch one character at a time; what ends up
  // in the field is the same. A null stops a run as well and comes back
  // here as the ch of the next one.
  void StoreText(wchar_t ch) {
    wchar_t run[kRunMax];
    run[0] = ch;
    size_t n = 1;
    for (;;) {
      size_t taken = 0;
      const InputFile::RunEnd end =
          m_In.TakeUntil<TextEnds>(run + n, kRunMax - n, taken, m_HeldCh);
      Append(run, n + taken);
      n = 0;
      if (end == InputFile::RunEnd::kStop) {
        m_Held = true;
        return;
      }
      if (end == InputFile::RunEnd::kEnd) {
        m_Ended = true;
        return;
      }
    }
  }

  // Reads the rest of a selector whose marker was just taken. With store
  // a malformed selector stays behind in the current field as text, its
  // marker and digits as they were read, while one that ";" ends leaves the
  // field as it was. A repeated marker starts a new selector.
  Selector Read(bool store, long& n) {
    for (;;) {
      const Selector end = ReadOne(store, n);
      if (end != Selector::kText || m_HeldCh != Marker) {
        return end;
      }
      m_Held = false;
    }
  }

  // A line end, as the header and the records take it: the value's
  // trailing blanks go and one blank stands for the line end.
  void LineEnd() {
    m_Tab.DelEndBlankField();
    m_Tab.PutSym(L' ');
    if (g_Observer != nullptr) {
      g_Observer->LineEnd();
    }
  }

  // "\": the next character is stored as it is. False when the input
  // ends first.
  bool Escape() {
    wchar_t ch;
    if (!Next(ch)) {
      return false;
    }
    m_Tab.PutSym(ch);
    if (g_Observer != nullptr) {
      g_Observer->Escape(ch);
    }
    return true;
  }

  // A character stored one at a time.
  void Store(wchar_t ch) {
    m_Tab.PutSym(ch);
    if (g_Observer != nullptr) {
      g_Observer->Text(&ch, 1);
    }
  }

 private:
  static constexpr size_t kRunMax = 128;
  // The characters that end a run of text: a null, a line end, the
  // marker, "@" and "\" (and, for the block test, the bytes from 0x80,
  // which the decoder takes).
  static_assert(Marker > 0 && Marker < 0x80, "the marker is ASCII");
  using TextEnds = ByteStops<0, '\n', static_cast<signed char>(Marker), '@',
                             '\\'>;
  // Digits of a selector held back from the field until its end decides.
  static constexpr size_t kDigitsHeld = 24;

  // One selector: the digits after the marker and what ends them. The
  // digits are held here; an endless run of them goes into the field as
  // it comes, after the marker, and is taken out again if ";" follows.
  Selector ReadOne(bool store, long& n) {
    wchar_t digits[kDigitsHeld];
    size_t held = 0;
    size_t length = 1;
    bool spilled = false;
    // Unsigned, so that an endless run of digits wraps instead of
    // overflowing; the number then keeps the low 64 bits.
    uint64_t acc = 0;
    wchar_t ch;
    for (;; ++length) {
      if (!m_In.Get(ch)) {
        if (store)
          Spill(spilled, digits, held);
        NotSelector(length);
        End();
        return Selector::kEnd;
      }
      if (!IsDigit(ch))
        break;
      if (store) {
        if (held == kDigitsHeld)
          Spill(spilled, digits, held);
        digits[held++] = ch;
      }
      acc = acc * 10u + static_cast<uint64_t>(ch - L'0');
    }
    if (ch == L';') {
      if (spilled)
        m_Tab.GoPosPut();
      n = static_cast<long>(acc);
      if (g_Observer != nullptr) {
        g_Observer->Selector(Marker, n, length + 1);
      }
      return Selector::kSelected;
    }
    if (store)
      Spill(spilled, digits, held);
    NotSelector(length);
    m_Held = true;
    m_HeldCh = ch;
    return Selector::kText;
  }

  void NotSelector(size_t length) {
    if (g_Observer != nullptr) {
      g_Observer->NotSelector(Marker, length);
    }
  }

  void End() {
    if (g_Observer != nullptr && !m_EndTold) {
      m_EndTold = true;
      g_Observer->InputEnd(!m_In.AtEndOfFile());
    }
  }

  // Puts the selector read so far into the current field: the marker, the
  // first time, after the position to return to, then the held digits.
  void Spill(bool& spilled, const wchar_t* digits, size_t& held) {
    if (!spilled) {
      m_Tab.SavPosPut();
      m_Tab.PutSym(Marker);
      spilled = true;
    }
    m_Tab.PutRun(digits, held);
    held = 0;
  }

  void Append(const wchar_t* run, size_t n) {
    m_Tab.PutRun(run, n);
    if (g_Observer != nullptr && n != 0) {
      g_Observer->Text(run, n);
    }
  }

  InputFile& m_In;
  FieldTab& m_Tab;
  bool m_Held = false;
  wchar_t m_HeldCh = 0;
  // The input ended inside StoreText: it is not read again.
  bool m_Ended = false;
  bool m_EndTold = false;
};

// Reads one initial-parameters file into the header table. Only fields the
// header lacks are filled: the input table always wins, so text after the
// selector of a field that exists already is skipped.
void ReadParameters(InputFile& file) {
  if (g_Observer != nullptr) {
    g_Observer->ParametersBegin();
  }
  FieldTab& tab = Tbl::TabHdrField;
  tab.SetCurrent(0);
  bool collecting = false;
  Scan<L'&'> scan(file, tab);
  wchar_t ch;
  while (scan.Next(ch)) {
    if (ch == L'&') {
      long n = 0;
      const Selector end = scan.Read(collecting, n);
      if (end == Selector::kEnd)
        break;
      if (end == Selector::kSelected) {
        collecting = tab.InsertField(n);
        if (collecting) {
          tab.SetCurrent(n);
          tab.InsSeparator();
        }
      }
    } else if (ch == L'\n') {
      if (collecting) {
        scan.LineEnd();
      } else if (g_Observer != nullptr) {
        g_Observer->LineEnd();
      }
    } else if (collecting) {
      scan.Store(ch);
    } else if (g_Observer != nullptr) {
      g_Observer->Text(&ch, 1);
    }
  }
  tab.DelEndBlank();
  if (g_Observer != nullptr) {
    g_Observer->ParametersEnd();
  }
}

}  // namespace

void SetTableObserver(TableObserver* observer) {
  g_Observer = observer;
}

bool Tbl::GetHider() {
  Open(InpFile.c_str(), kTableBuffer);
  if (!IsOpen())
    return false;
  FieldTab& tab = TabHdrField;
  tab.Clear();
  // Text before the first selector belongs to field 0 when the header
  // table has one; otherwise there is no current field and it is dropped.
  tab.SetCurrent(0);
  bool line_start = true;
  Scan<L'&'> scan(*this, tab);
  wchar_t ch;
  while (scan.Next(ch)) {
    if (ch == L'&') {
      long n = 0;
      const Selector end = scan.Read(true, n);
      line_start = false;
      if (end == Selector::kEnd)
        break;
      if (end == Selector::kSelected) {
        // A repeated number selects the existing field, whose next value
        // then follows a separator.
        tab.InsertField(n);
        tab.SetCurrent(n);
        tab.InsSeparator();
      }
    } else if (ch == L'\n') {
      scan.LineEnd();
      line_start = true;
    } else if (ch == L'\\') {
      if (!scan.Escape())
        break;
      line_start = false;
    } else if (line_start && (ch == L'$' || ch == L'>' || ch == L'@')) {
      // The first record (or page mark) begins here; the record reader
      // takes this character first.
      PutBack(ch);
      if (g_Observer != nullptr)
        g_Observer->HeaderEnd(ch);
      break;
    } else if (ch == L'$' || ch == L'>' || ch == L'@') {
      scan.Store(ch);
    } else {
      scan.StoreText(ch);
      line_start = false;
    }
  }
  // A table without records is complete as it is.
  tab.DelEndBlank();
  return true;
}

void Tbl::GetBegin() {
  if (BegParam.empty())
    return;
  std::wstring list = PathBlank;
  for (;;) {
    std::wstring::size_type pos = list.find(L';');
    if (pos == std::wstring::npos)
      pos = list.size();
    std::wstring dir = list.substr(0, pos);
    // The ";" stays at the head of what is left, so a list with two or
    // more directories never gets past its first one: the empty piece in
    // front of the ";" is tried over and over. Scripts that pass a single
    // directory (or none) are what the program has always been run with,
    // and that case is tried once.
    list.erase(0, pos);
    if (!dir.empty() && dir.back() != L'/')
      dir.push_back(L'/');
    const std::wstring name = dir + BegParam;
    {
      InputFile file;
      if (file.Open(name.c_str()))
        ReadParameters(file);
    }
    if (list.empty())
      return;
  }
}

int Tbl::GetRecord() {
  FirstOst = 0;
  FieldTab& tab = TabRcdField;
  // The fields themselves were made by the template; only their values go.
  tab.Clear();
  tab.SetCurrent(0);
  bool line_start = true;
  Scan<L'$'> scan(*this, tab);
  wchar_t ch;
  while (scan.Next(ch)) {
    if (ch == L'$') {
      long n = 0;
      const Selector end = scan.Read(true, n);
      line_start = false;
      if (end == Selector::kEnd)
        return 0;
      if (end == Selector::kSelected) {
        // No field is made here: text for a field the template does not
        // use has nowhere to go and is dropped up to the next selector.
        tab.SetCurrent(n);
        tab.InsSeparator();
      }
    } else if (ch == L'\n') {
      scan.LineEnd();
      line_start = true;
    } else if (ch == L'@') {
      // The rest of this line starts the next record.
      tab.DelEndBlank();
      FirstOst = tab.AllOst();
      if (g_Observer != nullptr)
        g_Observer->RecordEnd();
      return 1;
    } else if (ch == L'\\') {
      if (!scan.Escape())
        return 0;
      line_start = false;
    } else if (ch == L'>' && line_start) {
      // Wraps rather than overflows on absurdly many page marks.
      totBreak = static_cast<int32_t>(static_cast<uint32_t>(totBreak) + 1u);
      line_start = false;
      if (g_Observer != nullptr)
        g_Observer->PageMark();
    } else if (ch == L'>') {
      scan.Store(ch);
    } else {
      scan.StoreText(ch);
      line_start = false;
    }
  }
  // An unfinished last record is not counted, but its text stays in the
  // table for the closing output.
  return 0;
}
