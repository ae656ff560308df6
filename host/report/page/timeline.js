// The commands on a block and its neighbours: from left to right when, from bottom to top which blocks.

const commandKinds = {
  write: {letter: "W", name: "write"},
  atomic: {letter: "A", name: "atomic write"},
  writesame: {letter: "S", name: "write-same"},
  trim: {letter: "T", name: "trim"},
  read: {letter: "R", name: "read"},
  verify: {letter: "V", name: "verify"},
  sync: {letter: "F", name: "cache flush"},
};

const plotHeight = 300;
const laneHeight = 15;
const letterWidth = 6.8;  // of a callout, about

function kindOf(command) {
  return Object.hasOwn(commandKinds, command.kind) ? command.kind : "unknown";
}

function kindName(command) {
  const name = commandKinds[kindOf(command)]?.name ?? command.kind;
  return command.preRead ? `${name} (pre-read)` : name;
}

function outcomeText(command) {
  if (command.trouble !== "") {
    return command.trouble;
  }
  if (command.finished === null) {
    return "not finished";
  }
  return command.status ? `status 0x${hex(command.status, 2)}` : "good";
}

function hasFailed(command) {
  return command.trouble !== "" || Boolean(command.status);
}

function markOf(command, guessed) {
  const marks = [];
  if (command.failingRead) {
    marks.push(guessed ? "last read" : "met it");
  }
  if (command.expectedWrite) {
    marks.push("expected");
  }
  if (command.observedWrite) {
    marks.push("found");
  }
  return marks.join(", ");
}

function whenText(at, timed) {
  return timed ? microText(at) : `entry ${grouped(at)}`;
}

function commandRows(command, finding) {
  const rows = [["", kindName(command)]];
  if (command.number !== null) {
    rows.push(["command", grouped(command.number)]);
  }
  if (command.id !== null) {
    rows.push(["agent's id", command.id]);
  }
  rows.push(["LBA", lbaText(command.lba)]);
  rows.push(["blocks", grouped(command.blocks) + (command.lbaStep > 1 ? `, every ${command.lbaStep}nd` : "")]);
  if (command.tag !== null) {
    rows.push(["tag", command.tag]);
  }
  rows.push(["issued", whenText(command.issued, finding.timed)]);
  if (command.finished !== null) {
    rows.push(["finished", whenText(command.finished, finding.timed)]);
  }
  rows.push(["outcome", outcomeText(command)]);
  const mark = markOf(command, finding.readIsGuessed);
  return mark === "" ? rows : [...rows, ["mark", mark]];
}

/** Which LBAs the picture shows, as numbers relative to `base`; `high` is not included. */
function lbaWindow(commands, base, neighbours) {
  const spans = commands.filter((one) => one.kind !== "sync").map((one) => {
    const low = Number(BigInt(one.lba) - base);
    return {low, high: low + one.blocks * one.lbaStep};
  });
  let below = 4;
  let above = 5;
  for (const {low, high} of spans) {
    // What reaches over the block is cut where it goes far beyond everything else.
    below = Math.max(below, low > 0 ? 0 : Math.min(-low, 64), high <= 0 ? 1 - high + Math.min(high - low, 32) : 0);
    above = Math.max(above, high <= 0 ? 0 : Math.min(high, 64), low > 0 ? low + Math.min(high - low, 32) : 0);
  }
  for (const one of neighbours) {
    const at = Number(BigInt(one.lba) - base);
    below = Math.max(below, -at);
    above = Math.max(above, at + 1);
  }
  const start = base > BigInt(below + 1) ? -(below + 1) : -Number(base);
  return {low: start, high: above + 1};
}

/** Maps moments to places; "order" gives every event the same room, "time" keeps proportions. */
function timeScale(finding, order, left, right) {
  const events = finding.commands.flatMap((one) => [one.issued, one.finished ?? one.issued]);
  events.push(...finding.moments.map((one) => one.at));
  const places = [...new Set(events)].sort((a, b) => a - b);
  const first = places[0] ?? 0;
  const last = places[places.length - 1] ?? 1;
  const rank = new Map(places.map((at, i) => [at, i]));
  const share = order ? (at) => rank.get(at) / Math.max(places.length - 1, 1)
                      : (at) => (at - first) / Math.max(last - first, 1);
  const most = Math.max(2, Math.floor((right - left) / 110));
  const chosen = order ? places.filter((_, i) => i % Math.ceil(places.length / most) === 0)
                       : ticksBetween(first, last, most);
  return {place: (at) => left + share(at) * (right - left), ticks: chosen};
}

function drawAxes(svg, frame, scale, finding, base, window) {
  const {left, right, top, bottom} = frame;
  for (const tick of ticksBetween(window.low, window.high, 6)) {
    if (!Number.isInteger(tick) || tick < window.low || tick >= window.high) {
      continue;
    }
    const y = frame.y(tick + 0.5);
    svg.append(draw("line", {class: "grid", x1: left, x2: right, y1: y, y2: y}));
    if (tick !== 0 && Math.abs(y - frame.y(0.5)) > 12) {
      svg.append(draw("text", {class: "tick", x: left - 6, y: y + 4, "text-anchor": "end"},
                      String(base + BigInt(tick))));
    }
  }
  for (const tick of scale.ticks) {
    const x = scale.place(tick);
    svg.append(draw("line", {class: "grid", x1: x, x2: x, y1: top, y2: bottom}));
    svg.append(draw("text", {class: "tick", x, y: bottom + 14, "text-anchor": x > right - 40 ? "end" : "start"},
                    finding.timed ? microText(Math.round(tick)) : grouped(Math.round(tick))));
  }
  svg.append(draw("rect", {class: "frame", x: left, y: top, width: right - left, height: bottom - top}));
}

function drawBlockLine(svg, frame, finding) {
  if (finding.lba === null) {
    return;
  }
  const {left, right} = frame;
  const height = Math.max(frame.y(0) - frame.y(1), 1.5);
  svg.append(draw("rect", {class: "block-line", x: left, y: frame.y(1), width: right - left, height}));
  svg.append(draw("text", {class: "tick block-label", x: left - 6, y: frame.y(0.5) + 4, "text-anchor": "end"},
                  finding.lba));
}

function barBox(command, frame, scale, base, window) {
  const x = scale.place(command.issued);
  const end = command.finished === null ? frame.right : scale.place(command.finished);
  if (command.kind === "sync") {
    return {x, width: Math.max(end - x, 2), y: frame.top, height: frame.bottom - frame.top};
  }
  const low = Number(BigInt(command.lba) - base);
  const from = Math.max(low, window.low);
  const to = Math.min(low + command.blocks * command.lbaStep, window.high);
  if (to <= from) {
    return null;
  }
  const height = Math.max(frame.y(from) - frame.y(to), 4);
  return {x, width: Math.max(end - x, 3), y: frame.y(to), height};
}

function drawBar(svg, command, box, finding, tabbable) {
  const marked = command.failingRead || command.expectedWrite || command.observedWrite;
  const classes = ["bar", `kind-${kindOf(command)}`, command.failingRead && "failing", hasFailed(command) && "failed",
                   command.finished === null && "open", marked && "marked"];
  const bar = draw("g", {class: classes.filter(Boolean).join(" "), role: "img", tabindex: tabbable || marked ? 0 : null});
  bar.append(draw("rect", {class: "shape", ...box}));
  const letter = commandKinds[kindOf(command)]?.letter;
  if (letter && box.width >= 12 && box.height >= 12 && command.kind !== "sync") {
    bar.append(draw("text", {class: "letter", x: box.x + box.width / 2, y: box.y + box.height / 2 + 3.5,
                             "text-anchor": "middle"}, letter));
  }
  if (hasFailed(command)) {
    const x = box.x + box.width;
    bar.append(draw("path", {class: "cross", d: `M${x - 3} ${box.y - 3}l6 6m0 -6l-6 6`}));
  }
  attachTip(bar, commandRows(command, finding));
  svg.append(bar);
}

/** Where a text beside a vertical line stays in the picture. */
function besideLine(x, text, frame) {
  const room = text.length * letterWidth + 8;
  if (x + room <= frame.right) {
    return {x: x + 8, "text-anchor": "start"};
  }
  return {x: x > room ? x - 8 : frame.right, "text-anchor": "end"};
}

/** The names of the remarkable commands, above the plot and each in a lane of its own. */
function drawCallouts(svg, frame, callouts) {
  callouts.forEach(({text, shape, box}, lane) => {
    const x = box.x + Math.min(box.width / 2, 8);
    const y = 11 + lane * laneHeight;
    svg.append(draw("line", {class: "leader", x1: x, x2: x, y1: y, y2: box.y}));
    svg.append(draw("path", {class: `glyph glyph-${shape}`, d: glyphPath(shape, x, y - 4)}));
    svg.append(draw("text", {class: "callout", y, ...besideLine(x, text, frame)}, text));
  });
}

function glyphPath(shape, x, y) {
  if (shape === "expected") {
    return `M${x} ${y - 5}l5 5l-5 5l-5 -5z`;
  }
  if (shape === "found") {
    return `M${x - 4.5} ${y}a4.5 4.5 0 1 0 9 0a4.5 4.5 0 1 0 -9 0z`;
  }
  return `M${x - 5} ${y - 4}h10l-5 9z`;
}

function calloutsOf(command, box, finding) {
  const id = command.id === null ? "" : ` ${command.id}`;
  const callouts = [];
  if (command.observedWrite) {
    callouts.push({text: `${kindName(command)}${id}: found on the block`, shape: "found", box});
  }
  if (command.expectedWrite) {
    callouts.push({text: `${kindName(command)}${id}: should be there`, shape: "expected", box});
  }
  if (command.failingRead) {
    const what = finding.readIsGuessed ? "last over the block" : "met it";
    callouts.push({text: `${kindName(command)}${id}: ${what}`, shape: "failing", box});
  }
  return callouts;
}

/** What the style fills trims with; one for the whole page. */
function makeHatching() {
  const pattern = draw("pattern", {id: "hatch", width: 5, height: 5, patternUnits: "userSpaceOnUse", patternTransform: "rotate(45)"},
                       draw("rect", {class: "hatch-ground", width: 5, height: 5}),
                       draw("rect", {class: "hatch-line", width: 2, height: 5}));
  return draw("svg", {class: "definitions", width: 0, height: 0, "aria-hidden": "true"}, draw("defs", null, pattern));
}

/** The picture in so many pixels. */
function drawTimeline(finding, width, order) {
  const commands = finding.commands;
  const base = BigInt(finding.lba ?? commands[0].lba);
  const window = lbaWindow(commands, base, finding.neighbours);
  const lanes = commands.reduce((sum, one) => sum + one.failingRead + one.expectedWrite + one.observedWrite, 0);
  const longest = String(base + BigInt(window.high)).length;
  const frame = {left: 14 + 7 * longest, right: width - 4, top: 6 + Math.max(lanes, 1) * laneHeight};
  frame.bottom = frame.top + plotHeight;
  frame.y = (lba) => frame.bottom - (lba - window.low) / (window.high - window.low) * plotHeight;
  const scale = timeScale(finding, order, frame.left + 4, frame.right - 6);
  const height = frame.bottom + 34;
  const svg = draw("svg", {class: "timeline", viewBox: `0 0 ${width} ${height}`, width, height, role: "group",
                           "aria-label": "Commands around the block"});
  drawAxes(svg, frame, scale, finding, base, window);
  drawBlockLine(svg, frame, finding);
  for (const moment of finding.moments) {
    const x = scale.place(moment.at);
    svg.append(draw("line", {class: "moment", x1: x, x2: x, y1: frame.top, y2: frame.bottom}),
               draw("text", {class: "tick", ...besideLine(x, moment.text, frame), y: frame.bottom - 4}, moment.text));
  }
  const callouts = [];
  for (const command of commands) {
    const box = barBox(command, frame, scale, base, window);
    if (box !== null) {
      drawBar(svg, command, box, finding, commands.length <= 60);
      callouts.push(...calloutsOf(command, box, finding));
    }
  }
  drawCallouts(svg, frame, callouts);
  svg.append(draw("text", {class: "axis", x: frame.right, y: height - 4, "text-anchor": "end"}, axisText(finding, order, width)),
             draw("text", {class: "axis", x: 0, y: frame.top - 5}, "LBA"));
  return svg;
}

function axisText(finding, order, width) {
  const what = finding.timed ? "time since the start of the test" : "entry of the command sequence";
  const wide = width > 640;
  return order ? `${what}${wide ? "; one step for each issue and completion" : ""}, not to scale` : what;
}

function legendOf(finding) {
  const kinds = Object.keys(commandKinds).filter((kind) => finding.commands.some((one) => one.kind === kind));
  return make("ul", {class: "legend"}, kinds.map((kind) => {
    const swatch = draw("svg", {class: "swatch", width: 22, height: 12, "aria-hidden": "true"},
                        draw("g", {class: `bar kind-${kind}`}, draw("rect", {class: "shape", x: 1, y: 1, width: 20, height: 10}),
                             draw("text", {class: "letter", x: 11, y: 9.5, "text-anchor": "middle"}, commandKinds[kind].letter)));
    return make("li", null, swatch, commandKinds[kind].name);
  }), make("li", {class: "band"}, make("span", {class: "band-swatch"}), "the block"));
}

function commandTable(finding) {
  const columns = [{title: "command", number: true}, {title: "id", number: true}, {title: "kind"}, {title: "tag", number: true},
                   {title: "LBA", number: true}, {title: "blocks", number: true}, {title: "issued", number: true},
                   {title: "finished", number: true}, {title: "outcome"}, {title: ""}];
  const rows = finding.commands.map((one) => ({
    class: markOf(one, finding.readIsGuessed) === "" ? null : "marked",
    cells: [one.number === null ? "–" : grouped(one.number), one.id ?? "–", kindName(one), one.tag ?? "–", one.lba, grouped(one.blocks),
            whenText(one.issued, finding.timed), one.finished === null ? "–" : whenText(one.finished, finding.timed),
            outcomeText(one), markOf(one, finding.readIsGuessed)],
  }));
  return make("details", null, make("summary", null, `The ${plural(finding.commands.length, "command", "commands")} as a table`),
              makeTable(columns, rows));
}

/** The timeline of a finding with what belongs to it; null when nothing is known of its commands. */
function makeTimeline(finding) {
  if (finding.commands.length === 0) {
    return null;
  }
  let order = true;
  const place = make("div", {class: "plot"});
  const redraw = () => {
    const width = Math.max(300, Math.floor(place.clientWidth));
    place.replaceChildren(drawTimeline(finding, width, order));
  };
  const choice = (name, value) => {
    const button = make("button", {type: "button", "aria-pressed": String(order === value)}, name);
    button.addEventListener("click", () => {
      order = value;
      for (const other of button.parentElement.children) {
        other.setAttribute("aria-pressed", String(other === button));
      }
      redraw();
    });
    return button;
  };
  let width = 0;
  // By then the place is in the document and has a width.
  queueMicrotask(redraw);
  new ResizeObserver(() => {
    if (place.clientWidth !== width) {
      width = place.clientWidth;
      redraw();
    }
  }).observe(place);
  return make("figure", {class: "timeline-figure"},
              make("div", {class: "figure-head"}, make("h3", null, "Commands around the block"),
                   make("div", {class: "choice"}, choice("in order", true), choice("to scale", false))),
              legendOf(finding), place, commandTable(finding));
}
