"""What became of the mutants: the table by file, the survivors, and which of them are known to change nothing."""

LEAST = 90.0  # percent


class Outdated(Exception):
    """A list of equivalent mutants that no longer fits the sources."""


def equivalent_of(path, keys):
    """Key → reason. Each entry is two lines: the key, and the reason, indented.

    An entry without a mutant is an error: whoever changed its line has to think again."""
    entries, key = {}, None
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            text = line.strip()
            if not text or text.startswith("#"):
                continue
            if line[0].isspace():
                if key is None:
                    raise Outdated(f"{path}:{number}: a reason without a mutant")
                entries[key] = f"{entries[key]} {text}".strip()
                continue
            if text in entries:
                raise Outdated(f"{path}:{number}: named twice")
            if text not in keys:
                raise Outdated(f"{path}:{number}: no such mutant any more: {text}")
            key = text
            entries[key] = ""
    for key, reason in entries.items():
        if not reason:
            raise Outdated(f"{path}: no reason for {key}")
    return entries


def percent(killed, counted):
    return 100.0 * killed / counted if counted else 100.0


class Outcome:
    """@param results of the mutants that were chosen
    @param equivalent key → reason
    @param known number of all mutants
    @param left_out how many of them do not compile as switches"""

    def __init__(self, results, equivalent, known, left_out):
        self.results, self.equivalent, self.known, self.left_out = results, equivalent, known, left_out
        self.noticed = [one for one in results if one["killed"]]
        self.same = [one for one in results if self._is_same(one)]
        self.survivors = [one for one in results if not one["killed"] and not self._is_same(one)]
        # Somebody was wrong about these.
        self.not_equivalent = [one for one in self.noticed if one["key"] in equivalent]

    def _is_same(self, one):
        return not one["killed"] and (one["same"] or one["key"] in self.equivalent)

    def percent(self):
        return percent(len(self.noticed), len(self.results) - len(self.same))

    def status(self):
        return 0 if self.percent() >= LEAST and not self.not_equivalent else 1

    def _rows(self):
        files = {}
        for one in self.results:
            row = files.setdefault(one["file"], [0, 0, 0])
            row[0] += 1
            row[1] += one["killed"]
            row[2] += self._is_same(one)
        return [(file, *files[file]) for file in sorted(files)]

    def text(self):
        lines = [f"{'file':26} {'mutants':>7} {'killed':>7} {'equivalent':>10} {'survived':>8} {'percent':>8}"]
        total = ("all", len(self.results), len(self.noticed), len(self.same))
        for file, count, killed, same in [*self._rows(), total]:
            lines.append(f"{file:26} {count:7} {killed:7} {same:10} {count - killed - same:8} "
                         f"{percent(killed, count - same):8.1f}")
        lines.append(f"of {self.known} mutants, {self.left_out} of which do not compile as switches; "
                     f"{sum(one['cpu'] for one in self.results):.0f} s of processor time")
        for one in self.survivors:
            lines += ["", f"SURVIVED {one['number']} {one['file']}:{one['line']} ({one['how']})", one["diff"],
                      f"key: {one['key']}"]
        for one in self.not_equivalent:
            lines += ["", f"NOT EQUIVALENT, {one['how']} notices it: {one['key']}"]
        return "\n".join(lines)

    def document(self):
        return {"mutants": len(self.results), "killed": len(self.noticed), "equivalent": len(self.same),
                "survived": len(self.survivors), "percent": round(self.percent(), 2), "known": self.known,
                "leftOut": self.left_out, "results": self.results}
