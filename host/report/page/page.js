// The page as a whole.

const verdicts = {
  "clean": {glyph: "✓", class: "clean", text: "Clean: nothing found"},
  "data failure": {glyph: "✕", class: "failure", text: "Data failure"},
  "unfinished": {glyph: "◐", class: "open", text: "Unfinished: the run did not come to its end"},
};

function statusClass(status) {
  return Object.hasOwn(verdicts, status) ? verdicts[status].class : "trouble";
}

function verdictOf(report) {
  return Object.hasOwn(verdicts, report.status) ? verdicts[report.status] : {glyph: "!", class: "trouble", text: report.status};
}

/** Follows the system until somebody chooses; the choice is kept where the browser lets a file keep something. */
function makeThemeButton() {
  const key = "corvane-report-theme";
  const themes = ["system", "light", "dark"];
  const button = make("button", {type: "button", id: "theme"});
  const set = (theme) => {
    document.documentElement.dataset.theme = theme;
    button.textContent = `Colours: ${theme}`;
  };
  let theme = "system";
  try {
    theme = localStorage.getItem(key) ?? theme;
  } catch {
    // No storage: the page begins as the system wants it.
  }
  set(themes.includes(theme) ? theme : "system");
  button.addEventListener("click", () => {
    const next = themes[(themes.indexOf(document.documentElement.dataset.theme) + 1) % themes.length];
    set(next);
    try {
      localStorage.setItem(key, next);
    } catch {
      // The choice then lasts as long as the page.
    }
  });
  return button;
}

function makeVerdict(report) {
  const verdict = verdictOf(report);
  const facts = [report.started, elapsedText(report.elapsedMs), `seed ${report.seed}`, plural(report.drives.length, "drive", "drives"),
                 `exit status ${report.exitStatus}`, report.stopped ? "ended by a signal" : "", `Corvane ${report.version}`];
  const found = report.findings.length > 0 ? `, ${plural(report.findings.length, "finding", "findings")}` : "";
  return make("section", {id: "verdict", class: `status-${verdict.class}`},
              make("h1", null, make("span", {class: "verdict-glyph", "aria-hidden": "true"}, verdict.glyph), verdict.text + found),
              make("p", {class: "soft"}, facts.filter(Boolean).join(" · ")),
              report.error === "" ? null : make("p", {class: "error"}, report.error),
              report.findings.length < 2 ? null : make("ol", {class: "contents"}, report.findings.map((finding, i) => make(
                "li", null, make("a", {href: `#finding-${i + 1}`}, headingOf(finding, i + 1))))));
}

function makeTest(report) {
  return make("section", {id: "test"}, make("h2", null, "The test"),
              report.repeat === "" ? null : [make("p", {class: "soft"}, "Repeat the run with"), makeCommandLine(report.repeat)],
              report.test.length === 0 ? null : makeTable([{title: "key"}, {title: "value"}], report.test),
              report.warnings.length === 0 ? null : make("ul", {class: "warnings"}, report.warnings.map((text) => make("li", null, text))));
}

const report = JSON.parse(document.getElementById("data").textContent);
document.title = `${verdictOf(report).text} – Corvane report`;
document.getElementById("report").append(
  make("header", null, make("span", {class: "brand"}, "Corvane report"), make("code", {class: "soft"}, report.file), makeThemeButton()),
  makeHatching(),
  makeVerdict(report),
  ...report.findings.map((finding, i) => makeFinding(finding, i + 1)),
  ...report.drives.map(makeDrive),
  makeTest(report));

let opened = [];
addEventListener("beforeprint", () => {
  opened = [...document.querySelectorAll("details:not([open])")];
  opened.forEach((details) => { details.open = true; });
});
addEventListener("afterprint", () => opened.forEach((details) => { details.open = false; }));
