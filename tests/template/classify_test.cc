// How template lines are classified and what text lines register, as the
// load and any other program see them.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "format/field.h"
#include "template/classify.h"
#include "textio/helpers.h"

namespace {

// kind|number|field|inRecord|cond|lines|repeats|message
std::wstring Describe(const Command& c) {
  return std::to_wstring(c.kind) + L"|" + std::to_wstring(c.number) + L"|" +
         std::to_wstring(c.field) + L"|" + std::to_wstring(c.inRecord) + L"|" +
         std::to_wstring(c.cond) + L"|" + std::to_wstring(c.blockLines) +
         L"|" + std::to_wstring(c.repeats) + L"|" + std::to_wstring(c.message);
}

TEST(ClassifyTest, CommandsInTheLoadsOrder) {
  const struct {
    std::wstring raw, expected;
  } rows[] = {
      {L">jump to 10\n", L"2|10|0|0|0|0|0|-1"},
      {L">ПЕРЕХОД 10 $3^\n", L"2|10|3|1|1|0|0|-1"},
      {L">jump to 10 &2\n", L"2|10|2|0|2|0|0|-1"},
      {L">jump to 10 $\n", L"2|10|0|1|2|0|0|-1"},
      {L">jump to 10 #2\n", L"2|10|2|0|0|0|0|0"},
      {L">jump to 10 $2x\n", L"2|10|2|1|0|0|0|0"},
      {L">jump tox\n", L"2|0|0|0|0|0|0|-1"},
      {L">\u040F\u2026\u0452\u2026\u2022\u040B\u201E 4\n", L"2|4|0|0|0|0|0|-1"},
      {L">repeat 3:10\n", L"3|0|0|0|0|3|10|-1"},
      {L">ПОВТОР 100:1000\n", L"3|0|0|0|0|100|1000|-1"},
      {L">repeat 101:1\n", L"3|0|0|0|0|101|1|1"},
      {L">repeat 3\n", L"3|0|0|0|0|3|0|2"},
      {L">repeat 2:1001\n", L"3|0|0|0|0|2|1001|2"},
      {L">7 start\n", L"1|7|0|0|0|0|0|-1"},
      {L">5=&1\n", L"1|5|0|0|0|0|0|-1"},
      {L">x=&12\n", L"4|12|0|0|0|0|0|-1"},
      {L">Jump to 1\n", L"0|0|0|0|0|0|0|5"},
      {L">\n", L"0|0|0|0|0|0|0|5"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Describe(ClassifyCommand(row.raw.c_str())), row.expected)
        << testing::PrintToString(row.raw);
  }
}

TEST(ClassifyTest, DefinitionsAreRefusedAndLabelsFound) {
  FieldTab header;
  FieldTab record;
  const Command define = ClassifyCommand(L">x=$5\n");
  EXPECT_FALSE(define.header);
  EXPECT_EQ(DefineMessage(define, header, record), 4);
  EXPECT_EQ(record.count(5), 1u) << "the field is made all the same";

  Line lines[4] = {};
  lines[1].kind = Line::Label;
  lines[1].link = 7;
  lines[3].kind = Line::Label;
  lines[3].link = 7;
  EXPECT_EQ(FindLabel(lines, 4, 7), 1);
  EXPECT_EQ(FindLabel(lines, 1, 7), 1) << "not among the first one";
  EXPECT_EQ(FindLabel(lines, 4, 8), 4);
}

// record uses as field@column, header texts as field@column:pieces, with
// "+" for a stop at "$", "&" or "?".
std::wstring DescribeScan(const TextScan& scan) {
  std::wstring out;
  for (const RecordUse& use : scan.records)
    out += L"$" + std::to_wstring(use.field) + L"@" +
           std::to_wstring(use.column) + L" ";
  for (const HeaderText& text : scan.headers) {
    out += L"&" + std::to_wstring(text.field) + L"@" +
           std::to_wstring(text.column) + L":";
    for (const HeaderPiece& piece : text.pieces) {
      const wchar_t* kinds[] = {L"", L"[D]", L"[T]", L"[copy]"};
      out += piece.kind == HeaderPiece::kText ? piece.text : kinds[piece.kind];
      if (piece.kind == HeaderPiece::kCopy)
        out += std::to_wstring(piece.field);
    }
    out += text.stopped ? L"+ " : L" ";
  }
  return out;
}

TEST(ClassifyTest, TextLinesRegisterFieldsAndDefineHeaderTexts) {
  const struct {
    std::wstring raw, expected;
  } rows[] = {
      {L"Name: $1 ID: $2\n", L"$1@6 $2@13 "},
      {L"@@4 @$5 $$ $x\n", L"$4@0 $5@4 $5@5 $0@8 $0@9 $0@11 "},
      {L"&1 x@Dy?z\n", L"&1@0: x[D]y+ "},
      {L"&2=abc@T@3@q\n", L"&2@0:abc[T][copy]3q "},
      {L"&=a$1\n", L"$1@3 &0@0:a+ "},
      // The text is taken from the line with its tabs expanded, at the
      // index of the "&" in the line as read.
      {L"\t&4 b\n", L"&0@1:      + "},
      {L"plain\n", L""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(DescribeScan(ScanTextLine(row.raw.c_str())), row.expected)
        << testing::PrintToString(row.raw);
  }
}

TEST(ClassifyTest, HeaderTextsTakeTheDateAndCopies) {
  FieldTab header;
  header.InsertField(3);
  header.SetCurrent(3);
  header.PutStr(L"abc\x01zzz");
  ResetCopiedText();
  for (const wchar_t* raw : {L"&1 x@Dy ?\n", L"&1 @3.\n"}) {
    for (const HeaderText& text : ScanTextLine(raw).headers)
      ApplyHeaderText(text, header);
  }
  EXPECT_EQ(header.FirstValue(1),
            L" x" + GetCurrentTimeString("%d.%m.%Y") + L"y abc.");
}

}  // namespace
