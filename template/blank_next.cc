// Line iteration over a loaded section: labels skipped, blocks repeated,
// jumps taken or refused, runaway loops stopped. Jumps test the run's
// shared field tables of driver/tbl.h.
#include <cstdint>
#include <string>

#include "driver/run_observer.h"
#include "driver/tbl.h"
#include "format/field.h"
#include "template/blank.h"

namespace {

// Whether a conditional jump is taken. With "^" a single field jumps once
// it is used up, while field 0 of the record table jumps once anything of
// the record has been printed: the two tests differ in kind, and templates
// are written against both.
bool ConditionHolds(const Line& jump) {
  const bool record = jump.inRecord == 1;
  FieldTab& tab = record ? Tbl::TabRcdField : Tbl::TabHdrField;
  bool untouched_or_left;
  if (record && jump.field == 0) {
    untouched_or_left = tab.AllOst() == Tbl::FirstOst;
  } else {
    untouched_or_left = tab.ExistOst(jump.field);
  }
  if (jump.cond == 1) {
    return !untouched_or_left;
  }
  if (jump.cond == 2) {
    return untouched_or_left;
  }
  return false;
}

}  // namespace

int Blank::FinishRepetition() {
  const int c = m_Current;
  if (c < 0 || c >= m_Count) {
    return c;
  }
  Line& last = m_Lines[c];
  if (last.kind != Line::Text || last.repeats <= 0) {
    return c;
  }
  // A pending page mark ends the block here, so that the page can break;
  // the mark is used up by it.
  if (Tbl::totBreak < 1) {
    --last.repeats;
    return static_cast<int>(last.link - 1);
  }
  --Tbl::totBreak;
  last.repeats = 0;
  return c;
}

Line* Blank::Next(int mode) {
  const int start = FinishRepetition() + 1;
  m_Current = start;
  if (start >= m_Count) {
    return nullptr;
  }
  int i = start;
  for (;;) {
    Line& entry = m_Lines[i];
    if (entry.kind == Line::Text) {
      m_Current = i;
      return &entry;
    }
    if (g_RunObserver != nullptr) {
      g_RunObserver->Step(m_Section, i);
    }
    if (entry.kind == Line::Repeat) {
      i = StartRepeat(i);
    } else if (entry.kind == Line::Jump) {
      if (!TakesJump(entry, i, mode)) {
        ++i;
      } else if (entry.link < 0 || entry.link >= m_Count) {
        // Only a section whose load failed keeps an unresolved label
        // number here; there is nowhere to go in this section.
        m_Current = m_Count;
        return nullptr;
      } else {
        i = JumpTo(static_cast<int>(entry.link), i);
      }
    } else {
      ++i;
    }

    m_Current = i;
    if (i == start) {
      if (g_RunObserver != nullptr) {
        g_RunObserver->Message(Tbl::errCyclicJump, m_Section, start);
      }
      Tbl::Report(Tbl::errCyclicJump, std::wstring(), &m_Out);
      return nullptr;
    }
    if (i >= m_Count) {
      return nullptr;
    }
  }
}

int Blank::StartRepeat(int i) {
  // The block is measured again on every arrival, so its repetition count
  // starts afresh each time the iteration comes round to it.
  const Line& repeat = m_Lines[i];
  const int first = i + 1;
  int left = repeat.blockLines;
  for (int k = first; k < m_Count; ++k) {
    if (m_Lines[k].kind == Line::Text && --left == 0) {
      m_Lines[k].link = first;
      m_Lines[k].repeats = static_cast<uint16_t>(repeat.repeats - 1);
      return first;
    }
  }
  if (g_RunObserver != nullptr) {
    g_RunObserver->Message(Tbl::errRepeatBlock, m_Section, i);
  }
  Tbl::Report(Tbl::errRepeatBlock, std::wstring(), &m_Out);
  return first;
}

bool Blank::TakesJump(const Line& jump, int i, int mode) {
  if (jump.cond != 0) {
    return ConditionHolds(jump);
  }
  // After the last record nothing may start the closing text over.
  if (mode != 0 && jump.link <= i) {
    return false;
  }
  // A pending page mark cancels one unconditional jump, and is used up.
  if (Tbl::totBreak < 1) {
    return true;
  }
  --Tbl::totBreak;
  return false;
}

int Blank::JumpTo(int target, int i) {
  m_Current = target;
  if (target > i) {
    return target;
  }
  const int64_t left = Tbl::TabRcdField.AllOst() + Tbl::TabHdrField.AllOst();
  Line& landing = m_Lines[target];
  if (left <= 0) {
    return target;
  }
  if (landing.passes > 0 && landing.lastOst == left) {
    // Nothing was printed since the last guarded pass: the loop would
    // never end, so the jump is refused. The comparison is made on every
    // second arrival only; templates that print on alternate passes
    // depend on it. After a refused jump on the section's last line there
    // is no entry to mark.
    if (i + 1 < m_Count) {
      m_Lines[i + 1].lastOst = left;
    }
    return i + 1;
  }
  if (landing.passes > 0) {
    landing.passes = 0;
  } else {
    ++landing.passes;
  }
  landing.lastOst = left;
  return target;
}

void Blank::ClrCount() {
  for (int k = 0; k < m_Count; ++k) {
    m_Lines[k].passes = 0;
    m_Lines[k].lastOst = 0;
  }
}
