// The block as the drive returned it beside the block as it had to be.

const bytesInRow = 16;
const rowsAtFirst = 32;

function splitBytes(digits) {
  return digits.match(/../g) ?? [];
}

function fieldAt(fields, offset) {
  return fields.find((field) => offset >= field.offset && offset < field.offset + field.bytes);
}

function byteSpan(bytes, offset, differing, fields) {
  const field = fieldAt(fields, offset);
  const classes = ["byte", differing.has(offset) && "differs", field && "field"].filter(Boolean).join(" ");
  const title = `byte ${offset}${field ? `, ${field.name}` : ""}`;
  return make("span", {class: classes, title}, bytes[offset] ?? "  ");
}

function asciiOf(bytes, row) {
  return bytes.slice(row, row + bytesInRow).map((byte) => {
    const code = parseInt(byte, 16);
    return code >= 0x20 && code < 0x7f ? String.fromCharCode(code) : "·";
  }).join("");
}

/** The names of the fields that begin in a row, above their bytes; null when none does. */
function fieldNames(fields, row) {
  const starting = fields.filter((field) => field.offset >= row && field.offset < row + bytesInRow);
  if (starting.length === 0) {
    return null;
  }
  return make("div", {class: "names", "aria-hidden": "true"}, make("span", {class: "offset"}), starting.map((field) => {
    const column = field.offset - row;
    return make("span", {class: "name", style: `--column: ${column}`},
                make("small", null, field.name === "id length" ? "n" : field.name));
  }));
}

function bytesRow(bytes, row, differing, fields) {
  const spans = [];
  for (let offset = row; offset < row + bytesInRow; ++offset) {
    spans.push(byteSpan(bytes, offset, differing, fields));
  }
  return make("div", {class: "bytes-row"}, make("span", {class: "offset"}, hex(row, 4)), make("span", {class: "values"}, spans),
              make("span", {class: "ascii"}, asciiOf(bytes, row)));
}

function bytesColumn(title, bytes, rows, differing, fields) {
  const lines = [];
  let before = -bytesInRow;
  for (const row of rows) {
    if (row !== before + bytesInRow) {
      lines.push(make("div", {class: "fold"}, `${(row - before) / bytesInRow - 1} equal rows`));
    }
    before = row;
    lines.push(fieldNames(fields, row), bytesRow(bytes, row, differing, fields));
  }
  return make("div", {class: "bytes-column"}, make("h4", null, title),
              bytes.length === 0 ? make("p", {class: "soft"}, "not known") : lines);
}

/** Rows that say something: those with a field or a difference, and the neighbours of those. */
function tellingRows(total, differing, fields) {
  const telling = new Set();
  for (let row = 0; row < total; row += bytesInRow) {
    const offsets = Array.from({length: bytesInRow}, (_, i) => row + i);
    if (row < 2 * bytesInRow || offsets.some((offset) => differing.has(offset) || fieldAt(fields, offset))) {
      [row - bytesInRow, row, row + bytesInRow].forEach((one) => telling.add(one));
    }
  }
  return [...telling].filter((row) => row >= 0 && row < total).sort((a, b) => a - b);
}

/** Both blocks side by side; null when neither is known. */
function makeBytes(finding) {
  const drive = splitBytes(finding.driveData);
  const reference = splitBytes(finding.referenceData);
  const total = Math.max(drive.length, reference.length);
  if (total === 0) {
    return null;
  }
  const differing = new Set(finding.differing);
  const all = Array.from({length: Math.ceil(total / bytesInRow)}, (_, i) => i * bytesInRow);
  const telling = differing.size === 0 ? all : tellingRows(total, differing, finding.fields);
  const place = make("div", {class: "bytes"});
  const show = (rows) => place.replaceChildren(
    bytesColumn("On the drive", drive, rows, differing, finding.fields),
    bytesColumn("Reference", reference, rows, differing, finding.fields));
  const few = telling.slice(0, rowsAtFirst);
  show(few);
  let button = null;
  if (few.length < all.length) {
    button = make("button", {type: "button", class: "more"}, `Show all ${all.length} rows`);
    button.addEventListener("click", () => {
      show(all);
      button.remove();
    });
  }
  const known = drive.length > 0 && reference.length > 0;
  const count = known ? `${grouped(differing.size)} of ${grouped(total)} bytes differ`
                        + (differing.size > 0 ? `, the first at byte ${finding.differing[0]}` : "") : "";
  const shown = few.length < telling.length ? `; the first ${few.length} rows of them` : "";
  return make("figure", {class: "bytes-figure"},
              make("div", {class: "figure-head"}, make("h3", null, "Bytes of the block"),
                   make("p", {class: "soft differing-count"}, count + shown)),
              place, button);
}
