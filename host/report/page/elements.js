// Elements of the page. Texts reach it only as text nodes and attributes, never as markup.

const svgNamespace = "http://www.w3.org/2000/svg";

function fillElement(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes ?? {})) {
    if (value !== null && value !== undefined && value !== false) {
      element.setAttribute(name, value === true ? "" : String(value));
    }
  }
  for (const child of children.flat(Infinity)) {
    if (child !== null && child !== undefined && child !== "") {
      element.append(child);
    }
  }
  return element;
}

/** An HTML element; children are elements, texts, or lists of them, and empty ones are left out. */
function make(name, attributes, ...children) {
  return fillElement(document.createElement(name), attributes, children);
}

/** An SVG element. */
function draw(name, attributes, ...children) {
  return fillElement(document.createElementNS(svgNamespace, name), attributes, children);
}

/**
 * A table. Columns: {title, number: flushed right, code: fixed width, class}. Rows: lists of cells, or
 * {cells, class, mark} where the row means something special.
 */
function makeTable(columns, rows, attributes) {
  const classOf = (column) => [column.number && "number", column.code && "code", column.class].filter(Boolean).join(" ");
  const head = make("tr", null, columns.map((column) => make("th", {scope: "col", class: classOf(column)}, column.title)));
  const body = rows.map((row) => {
    const cells = Array.isArray(row) ? row : row.cells;
    return make("tr", {class: Array.isArray(row) ? null : row.class},
                cells.map((cell, i) => make("td", {class: classOf(columns[i])}, cell)));
  });
  return make("div", {class: "scroll"},
              make("table", attributes, make("thead", null, head), make("tbody", null, body)));
}

/** A command line with a button that copies it. */
function makeCommandLine(text) {
  const button = make("button", {type: "button", class: "copy"}, "Copy");
  button.addEventListener("click", async () => {
    try {
      await navigator.clipboard.writeText(text);
      button.textContent = "Copied";
    } catch {
      // Not every browser lets a local file write to the clipboard; then the line is at least marked.
      getSelection().selectAllChildren(button.previousElementSibling);
    }
  });
  return make("div", {class: "command-line"}, make("code", null, text), button);
}

const tip = document.getElementById("tip");

/** Shows rows of [name, value] beside an element while the pointer is over it or it has the focus. */
function attachTip(element, rows) {
  const show = () => {
    tip.replaceChildren(make("dl", null, rows.map(([name, value]) => [make("dt", null, name), make("dd", null, value)])));
    tip.hidden = false;
    const box = element.getBoundingClientRect();
    const room = document.documentElement.clientWidth - tip.offsetWidth - 8;
    const left = Math.max(8, Math.min(box.left, room));
    const above = box.top - tip.offsetHeight - 6;
    tip.style.left = `${left + scrollX}px`;
    tip.style.top = `${(above > 0 ? above : box.bottom + 6) + scrollY}px`;
  };
  const hide = () => { tip.hidden = true; };
  element.addEventListener("pointerenter", show);
  element.addEventListener("pointerleave", hide);
  element.addEventListener("focus", show);
  element.addEventListener("blur", hide);
  element.setAttribute("aria-label", rows.map(([name, value]) => `${name} ${value}`).join(", "));
}
