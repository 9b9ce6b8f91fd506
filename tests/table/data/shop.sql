-- Two delivery notes of the example's letterhead: the database the README's
-- commands and the delivery-note test query.
CREATE TABLE note(no TEXT PRIMARY KEY, day TEXT, po TEXT, customer_no TEXT,
                  name TEXT, address TEXT, carrier TEXT, packages TEXT,
                  weight REAL, instructions TEXT);
CREATE TABLE item(note_no TEXT, pos INTEGER, article TEXT, description TEXT,
                  qty INTEGER, unit TEXT, weight REAL, remark TEXT);
INSERT INTO note VALUES
  ('LS-2025-04817', '14.03.2025', 'PO 7731/ANL', 'K-20931',
   'Atelier Nørrebro Arkitekter ApS',
   'Att. Mette Kjærgaard, 3rd floor, Ryesgade 104, 2200 København N',
   'Spedition Hoffmann, truck HB-SV 412 (driver: J. Łukasiewicz)',
   '3 pallets, 2 cartons', 1265.6,
   'Unload at the courtyard gate on Fælledvej; the goods lift carries
at most 400 kg per trip. Call Mr Lindqvist on +45 35 12 88 40 thirty minutes
before arrival, or write to facility@atelier-norrebro.example. Please
take the empty pallets & packing foam back with you.'),
  ('LS-2025-04818', '14.03.2025', 'mail of 10 March', 'K-31877',
   'Kolding Møbler A/S', 'Vejlevej 12, 6000 Kolding', NULL,
   '1 carton', 24.6, NULL);
INSERT INTO item VALUES
  ('LS-2025-04817', 1, 'BV-4410-OA', 'Height-adjustable desk, 160 × 80 cm with oak veneer top,
electric lift 65–130 cm, memory keys', 6, 'pcs', 312.0, NULL),
  ('LS-2025-04817', 2, 'BV-4410-KB', 'Cable tray & clamp set for desk BV-4410',
   6, 'set', 10.8, NULL),
  ('LS-2025-04817', 3, 'BV-2203-GR', 'Office swivel chair “Kolding”, grey wool fabric,
synchronous mechanism, 4D armrests, adjustable lumbar support', 6, 'pcs', 111.0,
   'Armrests are packed separately in carton 2 of 2.'),
  ('LS-2025-04817', 4, 'BV-2290', 'Chair mat for hard floors, polycarbonate, 120 × 150 cm',
   6, 'pcs', 33.0, NULL),
  ('LS-2025-04817', 5, 'BV-7100-W', '  $5; @ > \ kept as typed', 6, 'pcs', 135.0, NULL),
  ('LS-2025-04818', 1, 'BV-5605', 'Whiteboard markers, 4 colours', 5, 'set', 0.6, NULL),
  ('LS-2025-04818', 2, 'BV-5601', 'Whiteboard 180 × 120 cm, magnetic enamel',
   1, 'pcs', 24.0, 'Fragile: transport upright only!');
