"use strict";

// What the page is about. Pictures are numbered from 0 in decoding order; an array of numbers has an entry for each,
// NaN where there is none.
const report = JSON.parse(document.getElementById("data").textContent);
const pictureCount = report.types.length;

// Differences, runs of equal ones as [difference, count].
function decode(column, length = pictureCount) {
    const numbers = new Float64Array(length);
    let at = 0;
    let last = 0;
    for (const entry of column) {
        const [difference, count] = Array.isArray(entry) ? entry : [entry, 1];
        for (const end = at + count; at < end; ++at) numbers[at] = difference === null ? NaN : (last += difference);
    }
    return numbers;
}

function decodeList(column) {
    const length = column.reduce((sum, entry) => sum + (Array.isArray(entry) ? entry[1] : 1), 0);
    return Array.from(decode(column, length));
}

const columns = {};
for (const [name, column] of Object.entries(report.columns)) columns[name] = decode(column);
for (const hrd of report.hrds) {
    for (const [name, column] of Object.entries(hrd.columns)) hrd[name] = decode(column);
    for (const name of ["starts", "underflows", "overflows"]) hrd[name] = decodeList(hrd[name]);
    hrd.underflowSet = new Set(hrd.underflows);
    hrd.overflowSet = new Set(hrd.overflows);
    hrd.startSet = new Set(hrd.starts);
    hrd.key = hrd.name.toLowerCase();
    hrd.bits = (hrd.bytes || columns.bytes).map(bytes => 8 * bytes);
}
const jumps = new Map(report.jumps);

function sequenceOf(picture) {
    return report.sequences.findLast(sequence => sequence.first <= picture);
}

// Seconds a picture by the sequences' rates. A sequence without one goes on at the rate before it, at the beginning at
// the first there is; without any rate charts count pictures instead.
let shownRate = report.sequences.find(sequence => sequence.rate !== null)?.rate ?? null;
const hasTime = shownRate !== null;
const durations = new Float64Array(pictureCount);
const assumed = new Uint8Array(pictureCount);
report.sequences.forEach((sequence, i) => {
    const end = i + 1 < report.sequences.length ? report.sequences[i + 1].first : pictureCount;
    shownRate = sequence.rate ?? shownRate;
    durations.fill(1, sequence.first, end);
    for (let p = sequence.first; hasTime && p < end; ++p) durations[p] = columns.fields[p] * shownRate[1] / shownRate[0] / 2;
    if (sequence.rate === null) assumed.fill(1, sequence.first, end);
});
const assumedCount = assumed.filter(Boolean).length;

// An order of the pictures: the picture at each place, the place of each picture, and where each place begins.
function makeOrder(pictures) {
    const order = {pictures, places: new Uint32Array(pictureCount), begins: new Float64Array(pictureCount), end: 0};
    // Pictures of the same length are counted, so that small errors do not add up.
    let base = 0;
    let length = 0;
    let count = 0;
    for (let i = 0; i < pictureCount; ++i) {
        const p = pictures[i];
        order.places[p] = i;
        order.begins[i] = order.end;
        if (durations[p] !== length) {
            base = order.end;
            length = durations[p];
            count = 0;
        }
        order.end = base + length * ++count;
    }
    return order;
}
const decoding = makeOrder(Uint32Array.from({length: pictureCount}, (_, i) => i));
const output = makeOrder(Uint32Array.from(columns.in_output_order));
const streamEnd = decoding.end;

const offsets = new Float64Array(pictureCount);
let pictureBytes = 0;
for (let p = 0; p < pictureCount; ++p) {
    offsets[p] = report.beginning + pictureBytes;
    pictureBytes += columns.bytes[p];
}

// Bits in the second that ends with each picture, in decoding order; none where a picture's rate is not known. Of a
// shorter stream the mean.
function slidingRate() {
    const rates = new Float64Array(pictureCount).fill(NaN);
    if (!hasTime) return rates;
    if (streamEnd < 1) return assumedCount > 0 ? rates : rates.fill(8 * pictureBytes / streamEnd);
    const slack = 1e-6;
    let sum = 0;
    let first = 0;
    let lastAssumed = -1;
    for (let p = 0; p < pictureCount; ++p) {
        sum += columns.bytes[p];
        if (assumed[p]) lastAssumed = p;
        const end = decoding.begins[p] + durations[p];
        while (decoding.begins[first] < end - 1 - slack) sum -= columns.bytes[first++];
        if (end >= 1 - slack && first > lastAssumed) rates[p] = 8 * sum;
    }
    return rates;
}
const rates = slidingRate();

// Groups of pictures, each from an I picture to the next in decoding order.
const gops = [];
for (let p = 0; p < pictureCount; ++p) {
    const type = report.types[p];
    const secondField = columns.structure[p] > 0 && p > 0 && columns.structure[p - 1] > 0 &&
        columns.structure[p] !== columns.structure[p - 1] && output.places[p] === output.places[p - 1] + 1 &&
        (report.types[p - 1] === "D" || report.types[p - 1] === "I");
    if (gops.length === 0 || ((type === "I" || type === "D") && !secondField))
        gops.push({first: p, length: 0, closed: type === "D"});
    ++gops[gops.length - 1].length;
}

// Precision times that are more than half a picture away from where the one before them in output order leads.
const timeJumps = new Map();
for (let i = 0, last = -1, expected = 0; i < pictureCount; ++i) {
    const p = output.pictures[i];
    const time = columns.microseconds[p];
    if (!isNaN(time)) {
        if (last >= 0 && hasTime && Math.abs(time - expected) > 5e5 * durations[p]) timeJumps.set(p, time - expected);
        expected = time;
        last = p;
    }
    expected += 1e6 * durations[p];
    if (assumed[p]) last = -1;
}

// The last place of an order that begins at a position or before it.
function placeAt(begins, position) {
    let low = 0;
    let high = begins.length;
    while (low < high) {
        const middle = (low + high) >> 1;
        if (begins[middle] <= position) low = middle + 1;
        else high = middle;
    }
    return Math.max(low - 1, 0);
}
