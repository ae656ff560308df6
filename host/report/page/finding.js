// One finding: what it is, and everything that shows it.

const neighbourStates = {
  expected: {glyph: "=", name: "as expected"},
  old: {glyph: "o", name: "old data"},
  zeros: {glyph: "0", name: "zeros"},
  other: {glyph: "x", name: "other data"},
  unknown: {glyph: "?", name: "not known"},
  unreadable: {glyph: "!", name: "unreadable"},
};

function stateOf(neighbour) {
  return Object.hasOwn(neighbourStates, neighbour.state) ? neighbour.state : "unknown";
}

function headingOf(finding, number) {
  const what = finding.kind === "" || finding.kind === "unknown" ? "wrong data" : words(finding.kind);
  const where = finding.lba === null ? "" : ` at LBA ${lbaText(finding.lba)}`;
  return `Finding ${number}: ${what}${where} of ${finding.drive}`;
}

function whenFound(finding) {
  const parts = [];
  if (finding.elapsedMs !== null) {
    parts.push(`${elapsedText(finding.elapsedMs)} after the start`);
  }
  if (finding.commandNumber !== null) {
    parts.push(`${grouped(finding.commandNumber)} commands issued`);
  }
  if (finding.step !== null) {
    parts.push(`step ${grouped(finding.step)}`);
  }
  return parts.join(", ");
}

/** What people read first: the sentences, or the agent's own line where the run gave no explanation. */
function makeSentences(finding) {
  if (finding.sentences.length > 0) {
    return make("div", {class: "sentences"}, finding.sentences.map((sentence) => make("p", null, sentence)));
  }
  return make("div", {class: "sentences"}, make("p", null, finding.text),
              make("p", {class: "soft"}, finding.explained ? "" : "The result explains nothing more; what follows comes from the files beside it."));
}

function makeFacts(finding) {
  const facts = [["The agent said", finding.sentences.length > 0 ? finding.text : ""], ["Found", whenFound(finding)],
                 ["Suspects", finding.suspects.length === 0 ? "" : make("span", null, finding.suspects.map(
                   (suspect, i) => [i > 0 ? ", " : "", make("code", null, suspect)]), make("span", {class: "soft"}, " (likeliest first)"))],
                 ["A later read", finding.reread],
                 ["Legal would have been", finding.legal.length === 0 ? "" : make("ul", {class: "legal"}, finding.legal.map(
                   (one) => make("li", null, one.text)))]];
  return make("dl", {class: "facts"}, facts.filter(([, value]) => value !== "").map(
    ([name, value]) => [make("dt", null, name), make("dd", null, value)]));
}

function writerText(finding, mark) {
  const command = finding.commands.find((one) => one[mark]);
  if (!command) {
    return "–";
  }
  const end = BigInt(command.lba) + BigInt(command.blocks * command.lbaStep);
  return `${kindName(command)}, LBAs ${command.lba}..${end}, issued ${whenText(command.issued, finding.timed)}`;
}

/** What each of the two blocks says of itself; null when neither says anything. */
function makeStamps(finding) {
  const {observed, expected} = finding;
  const rows = [["bucket", observed.bucket, expected.bucket, (value) => `0x${hex(value, 6)}`],
                ["LBA", observed.lba, expected.lba, lbaText],
                ["command id", observed.commandId, expected.commandId, (value) => value]];
  const known = rows.filter(([, found, wanted]) => found !== null || wanted !== null);
  if (known.length === 0 && !observed.zeros && !expected.zeros) {
    return null;
  }
  const nothing = (stamp) => (stamp.zeros ? "zeros" : "–");
  const cells = known.map(([name, found, wanted, text]) => ({
    class: found === wanted ? null : "unequal",
    cells: [name, found === null ? nothing(observed) : text(found), found === wanted ? "=" : "≠",
            wanted === null ? nothing(expected) : text(wanted)],
  }));
  if (known.length === 0) {
    cells.push(["content", nothing(observed), observed.zeros === expected.zeros ? "=" : "≠", nothing(expected)]);
  }
  cells.push(["written by", writerText(finding, "observedWrite"), "", writerText(finding, "expectedWrite")]);
  return make("div", {class: "stamps"}, make("h3", null, "What the block says of itself"),
              makeTable([{title: ""}, {title: "on the drive", code: true}, {title: ""}, {title: "reference", code: true}], cells));
}

/** A cell for each block beside the wrong one; null when nothing is known of them. */
function makeNeighbours(finding) {
  if (finding.neighbours.length === 0) {
    return null;
  }
  const counts = new Map();
  const cells = finding.neighbours.map((one) => {
    const state = stateOf(one);
    counts.set(state, (counts.get(state) ?? 0) + 1);
    const self = one.lba === finding.lba;
    const cell = make("li", {class: `neighbour state-${state}${self ? " self" : ""}`, tabindex: 0},
                      make("span", {class: "glyph"}, neighbourStates[state].glyph),
                      make("span", {class: "distance"}, self ? one.lba : distanceText(one, finding)));
    attachTip(cell, [["LBA", lbaText(one.lba)], ["content", neighbourStates[state].name],
                     ...(one.commandId === null ? [] : [["command id", one.commandId]])]);
    return cell;
  });
  const legend = [...counts].map(([state, count]) => make(
    "li", null, make("span", {class: `neighbour state-${state}`}, neighbourStates[state].glyph),
    `${neighbourStates[state].name} (${count})`));
  return make("figure", {class: "neighbours-figure"},
              make("div", {class: "figure-head"}, make("h3", null, "The blocks around it")),
              make("ul", {class: "legend"}, legend), make("ol", {class: "neighbours"}, cells));
}

function distanceText(neighbour, finding) {
  if (finding.lba === null) {
    return neighbour.lba;
  }
  const distance = BigInt(neighbour.lba) - BigInt(finding.lba);
  return distance > 0n ? `+${distance}` : `−${-distance}`;
}

function makeHistory(finding) {
  if (finding.history.length === 0) {
    return null;
  }
  const columns = [{title: "event"}, {title: "command id", number: true}, {title: "block type"}, {title: "bucket", code: true},
                   {title: "embedded id", code: true}, {title: "embedded LBA", code: true}, {title: "hash", code: true}, {title: ""}];
  const rows = finding.history.map((row) => ({
    class: row.observed ? "observed" : null,
    cells: [...row.cells.map((cell) => (cell === "---" ? "–" : cell)), row.observed ? "◀ observed" : ""],
  }));
  return make("div", {class: "history"}, make("h3", null, "What could have been there, newest first"),
              makeTable(columns, rows));
}

function makeFiles(finding) {
  return make("ul", {class: "files soft"}, finding.notes.map((note) => make("li", null, note)),
              finding.files.map((file) => make("li", null, make("code", null, file))));
}

function makeFinding(finding, number) {
  return make("section", {class: "finding", id: `finding-${number}`}, make("h2", null, headingOf(finding, number)),
              makeSentences(finding), finding.replay === "" ? null : makeCommandLine(finding.replay), makeFacts(finding),
              makeTimeline(finding), makeNeighbours(finding),
              makeStamps(finding), makeBytes(finding), makeHistory(finding), makeFiles(finding));
}
