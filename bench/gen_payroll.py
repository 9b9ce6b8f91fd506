#!/usr/bin/env python3
"""Write a payroll register table for formfill's benchmark.

One record per employee, grouped by department; a page mark (a line holding
only ">") stands before the first employee of every department but the first,
so every department starts a new sheet.

  header  &1 company  &2 title  &3 pay period  &4 currency  &5 prepared by
          &6 number of employees  &7 total net pay  &8 total gross pay
  record  $1 employee number  $2 name  $3 department  $4 position
          $5 gross  $6 deductions  $7 net  $8 IBAN
          $9 postal address, one input line per address line
          $10 pay items, one "$10;" selector per item (1 to 6 values)
          $11 notes, 30 to 450 characters, split over lines of at most 72

Every literal "&", "$", "@", ">" and "\\" inside a value is escaped with "\\".
The output depends only on (records, seed), and record k is the same whatever
the number of records (only &6, &7 and &8 change).

usage: gen_payroll.py RECORDS [--seed N] [-o FILE]
"""

import argparse
import random
import sys

SPLIT_AT = 72
GROUP_MAX = 25
ESCAPES = str.maketrans({c: "\\" + c for c in "\\&$@>"})

COMPANY = "Nordlicht Logistik & Service GmbH"
TITLE = "Payroll register, monthly salaries and wages"
PERIOD = "2024-11-01 to 2024-11-30"
CURRENCY = "EUR"
PREPARED = "HR & Payroll (Ingrid Sæther)"

FIRST = ["Anna", "Jürgen", "Chloé", "Søren", "Mateusz", "Oluwaseun", "Li",
         "Fatima", "Björn", "José", "Ольга", "Dmitri", "Inês", "Kwame",
         "Aoife", "Tomás", "Zeynep", "Hiroshi", "Grace", "Pieter",
         "Małgorzata", "Ægir", "Élodie", "Νίκος", "Ayşe", "Nguyễn Thị",
         "François-Xavier"]
LAST = ["Müller", "Okafor", "Nowak", "Andersen", "García Márquez", "Smith",
        "Kowalczyk", "Dubois", "Rossi", "Nakamura", "Schröder", "Ó Briain",
        "Jensen", "Petrova", "Mensah", "van der Berg", "Yılmaz", "Lefèvre",
        "Świątek", "Brown", "Иванов", "Kim", "Papadopoulos", "Þórsdóttir",
        "Szőke", "Wójcik-Dąbrowska", "Hoàng"]
DEPARTMENT = ["Warehouse & Dispatch", "Customer Service (EMEA)", "Finance",
              "Finance, Controlling & Tax", "Forschung und Entwicklung",
              "Fleet maintenance", "IT", "Human Resources", "Отдел логистики",
              "Cold store, Hall 4 (frozen goods)", "Procurement",
              "Quality assurance & compliance", "Yard", "Legal",
              "Service après-vente", "Cross-docking terminal Świecko",
              "Facility management, buildings A to F", "Sales > 500 kEUR"]
TITLE_HEAD = ["Forklift operator", "Warehouse clerk", "Team leader",
              "Senior accountant", "Dispatcher", "Truck driver (C/CE)",
              "Mechatronics technician", "Software developer", "HR partner",
              "Customer service agent", "Buyer", "Quality inspector",
              "Legal counsel", "Shift supervisor", "Apprentice",
              "Facility technician", "Data analyst", "Kundenberater"]
TITLE_TAIL = ["night shift", "part-time 30 h", "certified for hazardous goods "
              "(ADR)", "deputy head of department", "fixed term to 2025-06-30",
              "on parental leave from 2024-12-16", "trainer for new staff",
              "first-aider", "works council member", "Level II",
              "cold store allowance", "key account Nordics",
              "remote, 3 days a week", "mentor"]
STREET = ["Große Bleichen", "Kurfürstendamm", "ul. Świętokrzyska",
          "Main Street", "rue de la Roquette", "улица Ленина",
          "Vesterbrogade", "Calle Mayor", "Hafenstraße", "Søndergade",
          "Kálvária tér", "Strandvejen", "Am Alten Güterbahnhof",
          "Rynek Główny"]
EXTRA = ["Hinterhaus, 3. OG", "c/o Kowalski", "Apartment 4B", "Gartenhaus",
         "bâtiment C, escalier 2", "Postfach 11 04 27", "kv. 17"]
CITY = [("20354", "Hamburg", "Germany"), ("10719", "Berlin", "Germany"),
        ("00-116", "Warszawa", "Poland"), ("75011", "Paris", "France"),
        ("1620", "København V", "Denmark"), ("28013", "Madrid", "Spain"),
        ("8000", "Aarhus C", "Denmark"), ("1083", "Budapest", "Hungary"),
        ("190000", "Санкт-Петербург", "Russia"), ("15230", "Frankfurt (Oder)",
        "Germany"), ("31-042", "Kraków", "Poland")]
IBAN_CC = [("DE", 18), ("PL", 24), ("FR", 23), ("DK", 14), ("ES", 20),
           ("HU", 24), ("NL", 14)]
ITEM = ["Overtime", "Night shift allowance (22:00 to 06:00)",
        "Sunday and public holiday bonus", "Cold store allowance",
        "Travel expenses, receipts checked", "Meal subsidy",
        "Company car, private use (1 % rule)", "Bonus Q3, paid with November",
        "Correction of October: overtime of week 43 was not booked, approved "
        "by the shift supervisor on 2024-11-05 (ticket HR-20931)",
        "Jubiläumsprämie",
        "Fahrtkostenzuschuss", "On-call duty", "Training allowance"]
NOTE = ["bank details changed on 2024-11-04, verified by phone",
        "tax class changed from I to III",
        "garnishment order 2024/118 applies: pay the excess to the court",
        "overtime approved by the shift supervisor",
        "sick leave 2024-11-12 to 2024-11-15 (certificate received)",
        "advance of $200 paid on 2024-11-08 deducted",
        "contact: payroll@nordlicht.example, extension 4410",
        "night shifts > 6 this month: allowance capped",
        "copy of the contract filed under \\\\hr-srv\\contracts\\2024",
        "works council informed; no objection",
        "Lohnsteuerbescheinigung an neue Adresse senden",
        "prime de froid versée selon l'accord du 12 mars",
        "сверхурочные согласованы с руководителем",
        "pension scheme contribution raised to 4 %",
        "two days of unpaid leave (see request 88/24)!",
        "meal subsidy stopped? check with the canteen",
        "union dues & parking fee deducted as agreed",
        "parental leave from 16 December; last full month",
        "address change pending, confirmation not yet received",
        "company car returned on 2024-11-29 @ 14:00",
        "bonus paid in full, target reached (112 %)",
        "please check the hours of week 47 again"]


def pick(r, seq):
    return seq[int(r() * len(seq))]


def money(cents):
    sign = "-" if cents < 0 else ""
    return "%s%d.%02d" % ((sign,) + divmod(abs(cents), 100))


def amounts(ra):
    """The amount stream: pay item count and amounts, deductions in cents.
    Drawn apart from the text stream so that the totals of the header can be
    computed without generating the text."""
    n = 1 + int(ra() * ra() * 6)                 # mostly 1 to 3 items
    items = [int(180000 + ra() * 520000)]          # base salary
    for _ in range(n - 1):
        items.append(int(2000 + ra() * ra() * 90000))
    gross = sum(items)
    deduct = int(gross * (0.18 + ra() * 0.24))
    return items, gross, deduct


def totals(n, seed):
    ra = random.Random(seed * 2 + 1).random
    gross = net = 0
    for _ in range(n):
        _, g, d = amounts(ra)
        gross += g
        net += g - d
    return gross, net


def split_lines(text):
    """Split at blanks into pieces of at most about SPLIT_AT characters; a
    line end reads back as one blank."""
    if len(text) <= SPLIT_AT:
        return [text]
    out, cur, n = [], [], 0
    for word in text.split(" "):
        if cur and n + 1 + len(word) > SPLIT_AT:
            out.append(" ".join(cur))
            cur, n = [], 0
        n += len(word) + (1 if cur else 0)
        cur.append(word)
    out.append(" ".join(cur))
    return out


def esc(text):
    return text.translate(ESCAPES)


def name(r):
    s = "%s %s" % (pick(r, FIRST), pick(r, LAST))
    if r() < 0.2:
        s += "-" + pick(r, LAST)
    return s


def distinct(r, pool, k):
    """k different pieces of pool, in the order drawn."""
    got = []
    while len(got) < k:
        piece = pick(r, pool)
        if piece not in got:
            got.append(piece)
    return got


def position(r):
    return ", ".join([pick(r, TITLE_HEAD)] +
                     distinct(r, TITLE_TAIL, int(r() * 4)))


def address(r):
    lines = ["%s %d" % (pick(r, STREET), 1 + int(r() * 140))]
    if r() < 0.3:
        lines.append(pick(r, EXTRA))
    code, city, country = pick(r, CITY)
    lines.append("%s %s" % (code, city))
    lines.append(country)
    return lines


def iban(r):
    cc, n = pick(r, IBAN_CC)
    s = cc + "%02d" % int(r() * 100) + "".join(
        str(int(r() * 10)) for _ in range(n))
    return " ".join(s[i:i + 4] for i in range(0, len(s), 4))


def notes(r):
    target = 30 + int(r() * r() * 420)
    s = ""
    used = set()
    while len(s) < target and len(used) < len(NOTE):
        piece = pick(r, NOTE)
        if piece in used:
            continue
        used.add(piece)
        joiner = pick(r, (", ", "; ", ". ")) if s else ""
        if s and s[-1] in "!?":
            joiner = " "
        if joiner in ("", ". ", " "):
            piece = piece[:1].upper() + piece[1:]
        s += joiner + piece
    return s if s[-1] in ".!?" else s + "."


def write_table(out, n, seed):
    gross_total, net_total = totals(n, seed)
    w = out.write
    for num, value in [(1, COMPANY), (2, TITLE), (3, PERIOD), (4, CURRENCY),
                       (5, PREPARED), (6, str(n)), (7, money(net_total)),
                       (8, money(gross_total))]:
        w("&%d;%s\n" % (num, esc(value)))
    r = random.Random(seed * 2).random
    ra = random.Random(seed * 2 + 1).random
    left = 1 + int(r() * GROUP_MAX)
    dept = pick(r, DEPARTMENT)
    buf = []
    for k in range(1, n + 1):
        if left == 0:
            left = 1 + int(r() * GROUP_MAX)
            dept = pick(r, DEPARTMENT)
            buf.append(">\n")
        left -= 1
        items, gross, deduct = amounts(ra)
        buf.append("$1;E-%07d\n$2;%s\n$3;%s\n$4;%s\n$5;%s\n$6;%s\n$7;%s\n"
                   "$8;%s\n$9;%s\n" % (
                       k, esc(name(r)), esc(dept), esc(position(r)),
                       money(gross), money(deduct), money(gross - deduct),
                       iban(r), "\n".join(esc(a) for a in address(r))))
        labels = ["Base salary"] + distinct(r, ITEM, len(items) - 1)
        for label, cents in zip(labels, items):
            buf.append("$10;%s %s\n" % (esc(label), money(cents)))
        buf.append("$11;%s\n@\n" % "\n".join(
            esc(line) for line in split_lines(notes(r))))
        if len(buf) > 4000:
            w("".join(buf))
            buf = []
    w("".join(buf))


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("records", type=int)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("-o", "--output", default="-")
    a = ap.parse_args(argv)
    if a.records < 0:
        ap.error("records must be >= 0")
    if a.output == "-":
        out = open(sys.stdout.fileno(), "w", encoding="utf-8", newline="\n",
                   buffering=1 << 20, closefd=False)
    else:
        out = open(a.output, "w", encoding="utf-8", newline="\n",
                   buffering=1 << 20)
    with out:
        write_table(out, a.records, a.seed)


if __name__ == "__main__":
    main()
