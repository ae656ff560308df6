// Numbers and times as people read them.

function grouped(number) {
  return String(number).replace(/\B(?=(\d{3})+(?!\d))/g, ",");
}

function hex(number, digits = 1) {
  return BigInt(number).toString(16).padStart(digits, "0");
}

/** An LBA in both bases that people and reports use. */
function lbaText(lba) {
  return `${lba} (0x${hex(lba)})`;
}

function bytesText(bytes) {
  const units = ["B", "kB", "MB", "GB", "TB", "PB", "EB"];
  let value = bytes;
  let unit = 0;
  while (value >= 1000 && unit + 1 < units.length) {
    value /= 1000;
    ++unit;
  }
  return `${unit === 0 ? value : value.toFixed(2)} ${units[unit]}`;
}

/** Microseconds with the unit that suits them. */
function microText(us) {
  if (us < 1000) {
    return `${grouped(us)} µs`;
  }
  if (us < 1e6) {
    return `${(us / 1000).toFixed(us < 1e5 ? 2 : 1)} ms`;
  }
  return `${(us / 1e6).toFixed(us < 1e8 ? 3 : 1)} s`;
}

function elapsedText(ms) {
  if (ms < 60000) {
    return `${(ms / 1000).toFixed(2)} s`;
  }
  const seconds = Math.floor(ms / 1000);
  const two = (number) => String(number).padStart(2, "0");
  const hours = Math.floor(seconds / 3600);
  const minutes = Math.floor(seconds / 60) % 60;
  return hours > 0 ? `${hours}:${two(minutes)}:${two(seconds % 60)}` : `${minutes}:${two(seconds % 60)}`;
}

function shareText(part, whole) {
  return `${(100 * part / whole).toFixed(2)} %`;
}

function plural(count, one, many) {
  return `${grouped(count)} ${count === 1 ? one : many}`;
}

/** "old-data" as "old data". */
function words(name) {
  return name.replaceAll("-", " ");
}

/** Round values between two, at most so many. */
function ticksBetween(low, high, most) {
  const span = Math.max(high - low, 1e-9);
  const magnitude = 10 ** Math.floor(Math.log10(span / most));
  const step = [1, 2, 5, 10].map((factor) => factor * magnitude).find((size) => span / size <= most);
  const ticks = [];
  for (let tick = Math.ceil(low / step) * step; tick <= high + step / 1000; tick += step) {
    ticks.push(tick);
  }
  return ticks;
}
