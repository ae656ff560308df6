// One drive: totals, coverage and latencies.

function countIn(counts, name) {
  return counts.find(([key]) => key === name)?.[1] ?? 0;
}

function makeCommandCounts(drive) {
  const rows = drive.issued.filter(([, count]) => count > 0).map(
    ([kind, count]) => [commandKinds[kind]?.name ?? kind, grouped(count), grouped(countIn(drive.completed, kind))]);
  if (rows.length === 0) {
    return null;
  }
  const sum = (counts) => grouped(counts.reduce((total, [, count]) => total + count, 0));
  rows.push({class: "sum", cells: ["all", sum(drive.issued), sum(drive.completed)]});
  return makeTable([{title: "commands"}, {title: "issued", number: true}, {title: "completed", number: true}], rows);
}

function makeAmounts(drive) {
  const rows = drive.blockCounts.filter(([, count]) => count > 0).map(([name, count]) => {
    const bytes = countIn(drive.byteCounts, name);
    const rate = drive.elapsedMs > 0 ? `${(bytes / 1000 / drive.elapsedMs).toFixed(1)} MB/s` : "–";
    return [name, grouped(count), bytes > 0 ? bytesText(bytes) : "–", bytes > 0 ? rate : "–"];
  });
  return rows.length === 0 ? null : makeTable([{title: "amounts"}, {title: "blocks", number: true}, {title: "bytes", number: true},
                                               {title: "rate", number: true}], rows);
}

function makeOthers(drive) {
  const names = {heldBack: "held back", maxOutstanding: "outstanding at most", powerCycles: "power cycles", connectionsLost: "connections lost", zoneResets: "zone resets"};
  const telling = [...drive.commandCounts, ...drive.events].filter(([name, count]) => count > 0 || name === "failed");
  const rows = telling.map(([name, count]) => [names[name] ?? name, grouped(count)]);
  return rows.length === 0 ? null : makeTable([{title: "events"}, {title: "count", number: true}], rows);
}

/** How many blocks could be judged how closely; null when the run does not say. */
function makeCoverage(drive) {
  if (drive.checked === null) {
    return null;
  }
  const parts = [{name: "one legal content", count: drive.checked.oneOutcome, shade: "full"},
                 ...drive.checked.severalOutcomes.map(([number, count]) => (
                   {name: `${number} legal contents`, count, shade: "part"})),
                 ...drive.checked.notCheckable.map(([reason, count]) => (
                   {name: `not checkable: ${reason}`, count, shade: "none"}))].filter((part) => part.count > 0);
  const all = parts.reduce((total, part) => total + part.count, 0);
  if (all === 0) {
    return null;
  }
  const bar = make("div", {class: "coverage-bar", "aria-hidden": "true"}, parts.map((part) => make(
    "span", {class: `coverage-${part.shade}`, style: `flex-grow: ${part.count}`, title: part.name})));
  const rows = parts.map((part) => [make("span", {class: `coverage-key coverage-${part.shade}`}), part.name,
                                    grouped(part.count), shareText(part.count, all)]);
  return make("div", {class: "coverage"}, make("h3", null, "How closely the blocks that were read could be judged"), bar,
              makeTable([{title: ""}, {title: "each block had"}, {title: "blocks", number: true}, {title: "share", number: true}], rows));
}

function makeLatencyTable(latency) {
  const columns = ["count", "min", "mean", "p50", "p90", "p99", "p99.9", "max"].map((title) => ({title, number: true}));
  const rows = latency.map((one) => [
    commandKinds[one.kind]?.name ?? one.kind, grouped(one.count),
    ...[one.minUs, Math.round(one.meanUs), one.p50Us, one.p90Us, one.p99Us, one.p999Us, one.maxUs].map(grouped)]);
  return makeTable([{title: "µs"}, ...columns], rows);
}

/** One kind's histogram over a logarithmic scale that all kinds of the drive share. */
function drawHistogram(figures, low, high, width) {
  const height = 56;
  const bottom = height - 14;
  const place = (us) => (Math.log(Math.max(us, 1)) - low) / Math.max(high - low, 1e-9) * (width - 8) + 4;
  const most = Math.max(...figures.buckets.map(([, count]) => count), 1);
  const svg = draw("svg", {class: "histogram", viewBox: `0 0 ${width} ${height}`, width, height, role: "img",
                           "aria-label": `Latencies of ${figures.kind}`});
  for (let decade = Math.ceil(low / Math.LN10 - 1e-9); decade * Math.LN10 <= high + 1e-9; ++decade) {
    const x = place(10 ** decade);
    svg.append(draw("line", {class: "grid", x1: x, x2: x, y1: 0, y2: bottom}),
               draw("text", {class: "tick", x: x + 2, y: height - 3, "text-anchor": x > width - 40 ? "end" : "start"},
                    microText(10 ** decade)));
  }
  let before = null;
  for (const [bound, count] of figures.buckets) {
    const right = place(bound);
    // The lower bound of a bucket whose neighbour is empty is not known; it gets a thin bar at its upper bound.
    const room = before === null ? 4 : right - before;
    before = right;
    const size = Math.max(1.5, Math.min(room, 8) - 0.5);
    const tall = count === 0 ? 0 : Math.max(1, count / most * (bottom - 4));
    const bar = draw("rect", {class: "histogram-bar", x: right - size, y: bottom - tall, width: size, height: tall});
    bar.append(draw("title", null, `up to ${microText(bound)}: ${grouped(count)}`));
    svg.append(bar);
  }
  for (const [name, us] of [["p50", figures.p50Us], ["p99", figures.p99Us]]) {
    const x = place(us);
    svg.append(draw("line", {class: "percentile", x1: x, x2: x, y1: 0, y2: bottom}),
               draw("text", {class: "tick", x: x + 3, y: 9}, name));
  }
  svg.append(draw("line", {class: "ground", x1: 0, x2: width, y1: bottom, y2: bottom}));
  return svg;
}

function makeHistograms(latency) {
  const plotted = latency.filter((one) => one.buckets.length > 0);
  if (plotted.length === 0) {
    return null;
  }
  const bounds = plotted.flatMap((one) => [one.minUs, ...one.buckets.map(([bound]) => bound)]).map((us) => Math.log(Math.max(us, 1)));
  const low = bounds.reduce((a, b) => Math.min(a, b));
  const high = bounds.reduce((a, b) => Math.max(a, b));
  const place = make("div", {class: "histograms"});
  const redraw = () => {
    const width = Math.max(240, Math.floor(place.clientWidth) - 90);
    place.replaceChildren(...plotted.map((one) => make(
      "div", {class: "histogram-row"}, make("span", null, commandKinds[one.kind]?.name ?? one.kind), drawHistogram(one, low, high, width))));
  };
  queueMicrotask(redraw);
  addEventListener("resize", redraw);
  return place;
}

function makeLatency(drive) {
  if (drive.latency.length === 0) {
    return null;
  }
  return make("div", {class: "latency"}, make("h3", null, "Latency"), makeLatencyTable(drive.latency), makeHistograms(drive.latency));
}

function makeInjections(drive) {
  if (drive.injections.length === 0) {
    return null;
  }
  const columns = [{title: "fault"}, {title: "command", number: true}, {title: "kind"}, {title: "LBA", number: true}, {title: "blocks", number: true},
                   {title: "blocks altered", number: true}, {title: "delivered", number: true}, {title: ""}];
  const rows = drive.injections.map((one) => [make("code", null, one.class), grouped(one.command), one.kind, one.lba,
                                              grouped(one.blocks), grouped(one.altered), grouped(one.delivered), one.note]);
  return make("div", {class: "injections"}, make("h3", null, "Faults that this run injected"), makeTable(columns, rows));
}

function makeMessages(drive) {
  if (drive.messages.length === 0) {
    return null;
  }
  return make("details", null, make("summary", null, `What the agent said (${plural(drive.messages.length, "line", "lines")})`),
              make("pre", null, drive.messages.join("\n")));
}

function makeDrive(drive) {
  const shape = [make("code", null, drive.address), drive.description];
  if (drive.endLba !== "0") {
    shape.push(`LBAs ${drive.firstLba}..${drive.endLba} of ${drive.blocks}, ${drive.blockSize}-byte blocks`);
  }
  if (drive.elapsedMs > 0) {
    shape.push(elapsedText(drive.elapsedMs));
  }
  return make("section", {class: "drive"},
              make("h2", null, `Drive ${drive.name}`),
              make("p", {class: `drive-verdict status-${statusClass(drive.status)}`}, drive.verdict === "" ? drive.status : drive.verdict),
              drive.error !== "" && !drive.verdict.includes(drive.error) ? make("p", null, drive.error) : null,
              make("p", {class: "soft shape"}, shape.filter((part) => part !== "").map((part, i) => [i > 0 ? " · " : "", part])),
              make("div", {class: "totals"}, makeCommandCounts(drive), makeAmounts(drive), makeOthers(drive)),
              makeCoverage(drive), makeLatency(drive), makeInjections(drive), makeMessages(drive));
}
