// Reading the input table and the initial-parameters file into the field
// tables of Tbl.
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "driver/table_observer.h"
#include "driver/tbl.h"
#include "format/field.h"
#include "textio/input_file.h"
#include "textio/stream_bytes.h"

namespace {

TableObserver* g_Observer = nullptr;

// The table's read buffer, in bytes.
constexpr size_t kTableBuffer = 64 * 1024;

// How a selector ("&N;" or "$N;") that began with its marker ended.
enum class Selector {
  kSelected,  // ";" followed the digits; the number is known
  kText,      // something else followed: the marker and digits are text
  kEnd,       // the input ended first
};

// The character source and selector scan shared by the three readers. A
// character that ends the digits of a failed selector is held and handed
// out again by the next Next(), so that it is treated like any other.
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
    return !m_Ended && m_In.Get(ch);
  }

  // Stores ch and the plain text after it in the current field, up to the
  // next character that the readers act on (a line end, an escape, a
  // marker, "@"), which is held for Next(). Plain text is most of a table,
  // and this spares it the dispatch one character at a time; what ends up
  // in the field is the same. ch and the text after it go in as runs of up
  // to kRunMax characters; a null stops a run as well and comes back here
  // as the ch of the next one.
  void StoreText(wchar_t ch) {
    wchar_t run[kRunMax];
    run[0] = ch;
    size_t n = 1;
    // A pushed-back character can only be waiting before the first read
    // here; without one, bytes are taken from the stream directly, and the
    // decoder goes on from those that begin a longer sequence.
    FILE* const stream = m_In.m_IsBack ? nullptr : m_In.m_Stream;
    for (;;) {
      if (stream != nullptr) {
        // What the stream has buffered of the text goes into the run
        // straight away; the byte that ends it is read below.
        n += TakeWhile<TextEnds>(stream, run + n, kRunMax - n);
        if (n == kRunMax) {
          Append(run, n);
          n = 0;
          continue;
        }
        const int b = getc_unlocked(stream);
        if (b >= 0 && b < 0x80) {
          ch = static_cast<wchar_t>(b);
        } else if (b == EOF) {
          m_Ended = true;
          break;
        } else if (!InputFile::DecodeMore(stream, b, ch)) {
          m_Ended = true;
          break;
        }
      } else if (!m_In.Get(ch)) {
        m_Ended = true;
        break;
      }
      if (Stops(ch)) {
        m_Held = true;
        m_HeldCh = ch;
        break;
      }
      run[n++] = ch;
      if (n == kRunMax) {
        Append(run, n);
        n = 0;
      }
    }
    Append(run, n);
  }

  // Reads the rest of a selector whose marker was just taken. With store
  // a malformed selector stays behind in the current field as text, its
  // marker and digits as they were read, while one that ";" ends leaves the
  // field as it was. The digits are held here until the selector's end
  // decides; an endless run of them goes into the field as it comes, after
  // the marker, and is taken out again if ";" follows. A repeated marker
  // starts a new selector.
  Selector Read(bool store, long& n) {
    for (;;) {
      wchar_t digits[kDigitsHeld];
      size_t held = 0;
      bool spilled = false;
      // Unsigned, so that an endless run of digits wraps instead of
      // overflowing; the number then keeps the low 64 bits.
      uint64_t acc = 0;
      wchar_t ch;
      for (;;) {
        if (!m_In.Get(ch)) {
          if (store)
            Spill(spilled, digits, held);
          return Selector::kEnd;
        }
        if (ch < L'0' || ch > L'9')
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
        return Selector::kSelected;
      }
      if (store)
        Spill(spilled, digits, held);
      if (ch != Marker) {
        m_Held = true;
        m_HeldCh = ch;
        return Selector::kText;
      }
    }
  }

 private:
  static constexpr size_t kRunMax = 128;
  // The bytes that end a run of text: the stops below, and those from 0x80,
  // which begin a longer sequence for the decoder.
  static_assert(Marker > 0 && Marker < 0x80, "the marker is ASCII");
  using TextEnds = ByteStops<0, '\n', static_cast<signed char>(Marker), '@',
                             '\\'>;
  // Digits of a selector held back from the field.
  static constexpr size_t kDigitsHeld = 24;

  // Puts the selector read so far into the current field: the marker, the
  // first time, after the position to return to, then the held digits.
  void Spill(bool& spilled, const wchar_t* digits, size_t& held) {
    if (!spilled) {
      m_Tab.SavPosPut();
      m_Tab.PutSym(Marker);
      spilled = true;
    }
    Append(digits, held);
    held = 0;
  }

  // Appended by its length: a run may begin with a null.
  void Append(const wchar_t* run, size_t n) {
    if (n != 0 && m_Tab.m_Current != nullptr)
      m_Tab.m_Current->m_Value.append(run, n);
  }

  // Where StoreText stops: a null, a line end, the marker, "@" or "\\". A
  // table lookup rather than a chain of compares, whose branches text
  // (letters, blanks, digits in any mix) would keep mispredicting.
  static bool Stops(wchar_t ch) {
    const uint32_t code = static_cast<uint32_t>(ch);
    return code < 0x80 && kStopsAscii[code];
  }

  static constexpr std::array<bool, 0x80> StopTable() {
    std::array<bool, 0x80> table{};
    for (unsigned b = 0; b < 0x80; ++b) {
      table[b] = TextEnds::Stops(static_cast<unsigned char>(b));
    }
    return table;
  }
  static constexpr std::array<bool, 0x80> kStopsAscii = StopTable();

  InputFile& m_In;
  FieldTab& m_Tab;
  bool m_Held = false;
  wchar_t m_HeldCh = 0;
  // The input ended inside StoreText: it is not read again.
  bool m_Ended = false;
};

// Reads one initial-parameters file into the header table. Only fields the
// header lacks are filled: the input table always wins, so text after the
// selector of a field that exists already is skipped.
void ReadParameters(InputFile& file) {
  FieldTab& tab = Tbl::TabHdrField;
  tab.SetCurrent(0);
  bool collecting = false;
  Scan<L'&'> scan(file, tab);
  wchar_t ch;
  while (scan.Next(ch)) {
    if (ch == L'&') {
      long n = 0;
      Selector end = scan.Read(collecting, n);
      if (end == Selector::kEnd)
        break;
      if (end == Selector::kSelected) {
        if (tab.InsertField(n)) {
          tab.SetCurrent(n);
          tab.InsSeparator();
          collecting = true;
        } else {
          collecting = false;
        }
      }
    } else if (ch == L'\n') {
      if (collecting) {
        tab.DelEndBlankField();
        tab.PutSym(L' ');
      }
    } else if (collecting) {
      tab.PutSym(ch);
    }
  }
  tab.DelEndBlank();
}

}  // namespace

bool Tbl::GetHider() {
  // The table is read from start to end once, through a buffer larger than
  // the library's: a sixteenth of the reads.
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
    switch (ch) {
      case L'&': {
        long n = 0;
        Selector end = scan.Read(true, n);
        line_start = false;
        if (end == Selector::kEnd) {
          tab.DelEndBlank();
          return true;
        }
        if (end == Selector::kSelected) {
          // A repeated number selects the existing field, whose next value
          // then follows a separator.
          tab.InsertField(n);
          tab.SetCurrent(n);
          tab.InsSeparator();
        }
        break;
      }
      case L'\n':
        tab.DelEndBlankField();
        tab.PutSym(L' ');
        line_start = true;
        break;
      case L'\\':
        if (!scan.Next(ch)) {
          tab.DelEndBlank();
          return true;
        }
        tab.PutSym(ch);
        line_start = false;
        break;
      case L'$':
      case L'>':
      case L'@':
        if (line_start) {
          // The first record (or page mark) begins here; the record reader
          // takes this character first.
          PutBack(ch);
          tab.DelEndBlank();
          return true;
        }
        tab.PutSym(ch);
        break;
      default:
        scan.StoreText(ch);
        line_start = false;
        break;
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
    std::wstring name = dir + BegParam;
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
    switch (ch) {
      case L'$': {
        long n = 0;
        Selector end = scan.Read(true, n);
        line_start = false;
        if (end == Selector::kEnd)
          return 0;
        if (end == Selector::kSelected) {
          // No field is made here: text for a field the template does not
          // use has nowhere to go and is dropped up to the next selector.
          tab.SetCurrent(n);
          tab.InsSeparator();
        }
        break;
      }
      case L'\n':
        tab.DelEndBlankField();
        tab.PutSym(L' ');
        line_start = true;
        break;
      case L'@':
        // The rest of this line starts the next record.
        tab.DelEndBlank();
        FirstOst = tab.AllOst();
        return 1;
      case L'\\':
        if (!scan.Next(ch))
          return 0;
        tab.PutSym(ch);
        line_start = false;
        break;
      case L'>':
        if (line_start) {
          // Wraps rather than overflows on absurdly many page marks.
          totBreak = static_cast<int32_t>(static_cast<uint32_t>(totBreak) + 1u);
          line_start = false;
          break;
        }
        tab.PutSym(ch);
        break;
      default:
        scan.StoreText(ch);
        line_start = false;
        break;
    }
  }
  // An unfinished last record is not counted, but its text stays in the
  // table for the closing output.
  return 0;
}

void SetTableObserver(TableObserver* observer) {
  g_Observer = observer;
}
