#!/usr/bin/env python3
"""Write an invoice-line CSV for formfill-table's benchmark.

Twelve columns, a header row naming them, one invoice line per row:

  invoice, date, customer_no, customer, street, city, article,
  description, quantity, unit_price, amount, note

Customers come in runs (one invoice covers several lines), so --split-by
customer_no makes one table per customer. About one row in five quotes a
field that holds a comma, a doubled quote or a line break; names and
descriptions carry non-ASCII text. Line ends are CRLF, as spreadsheets
write them. The output depends only on (size, seed).

usage: gen_invoices.py MEGABYTES [--seed N] [-o FILE]
"""

import argparse
import random
import sys

NAMES = ["Atelier Nørrebro ApS", "Brandt & Vogel GmbH", "Świątek Sp. z o.o.",
         "Nguyễn Thị Hoa", "Ó Briain Teoranta", "Иванов и партнёры",
         "Müller-Lüdenscheidt KG", "Café Ümlaut", "Kolding Møbler A/S",
         "Smith, Jones & Partners"]
STREETS = ["Ryesgade 104", "Hafenstraße 12", "ul. Długa 7", "12 Main Street",
           "Fælledvej 3, 2nd floor", "Rua Augusta 210"]
CITIES = ["2200 København N", "28217 Bremen", "00-238 Warszawa",
          "Dublin 2", "1100-053 Lisboa", "Kraków"]
WORDS = ("desk oak veneer top electric lift memory keys cable tray clamp set "
         "swivel chair grey wool fabric armrests lumbar support pedestal "
         "drawers central lock white castors mat polycarbonate lamp").split()


def quote(text):
    if any(c in text for c in ',"\r\n'):
        return '"' + text.replace('"', '""') + '"'
    return text


def description(rng):
    words = rng.sample(WORDS, rng.randint(3, 9))
    text = " ".join(words).capitalize()
    roll = rng.random()
    if roll < 0.08:
        text += ', 160 × 80 cm'
    elif roll < 0.12:
        text += ' "Kolding"'
    elif roll < 0.16:
        text += "\r\nsecond line: " + " ".join(rng.sample(WORDS, 4))
    return text


def row(rng, n, customer):
    quantity = rng.randint(1, 40)
    price = rng.randint(100, 99999) / 100
    note = ""
    if rng.random() < 0.1:
        note = "Deliver to gate " + str(rng.randint(1, 9)) + ", ask for @desk"
    cells = [
        "RE-%07d" % (n // 4), "%02d.%02d.2025" % (n % 28 + 1, n % 12 + 1),
        "K-%05d" % customer, NAMES[customer % len(NAMES)],
        STREETS[customer % len(STREETS)], CITIES[customer % len(CITIES)],
        "BV-%04d-%s" % (rng.randint(1000, 9999), rng.choice("ABCDEFGH")),
        description(rng), str(quantity), "%.2f" % price,
        "%.2f" % (quantity * price), note,
    ]
    return ",".join(quote(c) for c in cells) + "\r\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("megabytes", type=float)
    parser.add_argument("--seed", type=int, default=18)
    parser.add_argument("-o", dest="out", default="-")
    args = parser.parse_args()
    rng = random.Random(args.seed)
    limit = int(args.megabytes * 1000 * 1000)
    out = sys.stdout.buffer if args.out == "-" else open(args.out, "wb")
    header = ("invoice,date,customer_no,customer,street,city,article,"
              "description,quantity,unit_price,amount,note\r\n")
    written = out.write(header.encode())
    n, customer, left = 0, 0, 0
    chunk = []
    while written < limit:
        if left == 0:
            customer, left = rng.randint(1, 5000), rng.randint(1, 12)
        data = row(rng, n, customer).encode()
        chunk.append(data)
        written += len(data)
        n, left = n + 1, left - 1
        if len(chunk) == 4096:
            out.write(b"".join(chunk))
            chunk = []
    out.write(b"".join(chunk))
    out.close()


if __name__ == "__main__":
    main()
