// What is shown of the picture under the pointer.

const STRUCTURES = ["frame", "top field", "bottom field"];

function timecodeText(p) {
    if (isNaN(columns.timecode[p])) return null;
    const seconds = Math.floor(columns.timecode[p] / 256);
    const parts = [seconds / 3600, seconds / 60 % 60, seconds % 60, columns.timecode[p] % 256];
    const [hours, minutes, rest, frames] = parts.map(part => String(Math.floor(part)).padStart(2, "0"));
    return hours + ":" + minutes + ":" + rest + (columns.drop_frame[p] ? ";" : ":") + frames;
}

function jumpText(p) {
    if (!jumps.has(p)) return null;
    const by = jumps.get(p);
    const what = by === null ? "to another counting, or to a frame that does not exist" :
        (by > 0 ? "+" : "−") + grouped(Math.abs(by)) + (Math.abs(by) === 1 ? " frame" : " frames");
    return what + (columns.discontinuity[p] ? ", announced" : "");
}

function intervalText(seconds) {
    const inSeconds = Math.abs(seconds) >= 10;
    const number = inSeconds ? seconds : 1000 * seconds;
    return number.toLocaleString("en", {maximumFractionDigits: 3}) + (inSeconds ? " s" : " ms");
}

function utcText(microseconds) {
    const date = new Date(Math.floor(microseconds / 1000));
    return isNaN(date) ? String(microseconds) :
        date.toISOString().slice(0, 19).replace("T", " ") + "." + String(microseconds % 1e6).padStart(6, "0");
}

function type(p) {
    return TYPE_NAMES[report.types[p]] + (columns.structure[p] > 0 ? ", " + STRUCTURES[columns.structure[p]] : "") +
        (columns.nal_ref_idc[p] > 0 ? "" : ", no reference");
}

// Rows [key, name, text, whether it is bad] of a picture.
function rowsOf(p) {
    const number = value => isNaN(value) ? null : grouped(value);
    const rows = [
        ["slice_type", "Type", type(p)],
        ["bytes", "Size", grouped(columns.bytes[p]) + " bytes"],
        ["unit", "NAL unit", grouped(columns.unit[p])],
        ["offset", "Offset", grouped(offsets[p])],
        ["timecode", "Timecode", timecodeText(p)],
        ["jump", "Timecode jump", jumpText(p), true],
        ["rate", "Bits in the last second", hasTime ? number(rates[p]) : null],
        ["cpb_removal_delay", "cpb_removal_delay", number(columns.cpb_removal_delay[p])],
        ["dpb_output_delay", "dpb_output_delay", number(columns.dpb_output_delay[p])],
    ];
    for (const hrd of report.hrds) {
        if (isNaN(hrd.removal[p])) continue;
        const bad = hrd.underflowSet.has(p) ? "underflow" : hrd.overflowSet.has(p) ? "overflow" : null;
        rows.push(
            [hrd.key + "-removal", hrd.name + " removal time", timeText(hrd.removal[p] / report.clock, 6)],
            [hrd.key + "-wait", hrd.name + " whole in the buffer for", intervalText(hrd.wait[p] / report.clock)],
            [hrd.key + "-fullness", hrd.name + " buffer before", grouped(hrd.fullness[p]) + " bits"],
            [hrd.key + "-after", hrd.name + " buffer after", grouped(Math.max(hrd.fullness[p] - hrd.bits[p], 0)) + " bits"],
            [hrd.key + "-bad", hrd.name + " buffer", bad, true]);
    }
    const format = columns.active_format[p];
    rows.push(
        ["cc_count", "Caption triples", isNaN(columns.cc_count[p]) ? null :
            columns.cc_count[p] + ", " + columns.cc_active[p] + " in use"],
        ["active_format", "AFD", isNaN(format) ? null : format < 0 ? "no active format" : format + ", " + AFD_NAMES[format]],
        ["microseconds", "Precision time", isNaN(columns.microseconds[p]) ? null : utcText(columns.microseconds[p])],
        ["time_status", "Precision time status", isNaN(columns.time_status[p]) ? null :
            "0x" + columns.time_status[p].toString(16).padStart(2, "0")],
        ["time_jump", "Precision time jump", timeJumps.has(p) ? intervalText(timeJumps.get(p) / 1e6) : null, true]);
    return rows.filter(row => row[2] !== null);
}

// The places in an order that the pointer is at: those in its column of pixels, or the one that is shown there.
function placesAt(u, order, left) {
    const place = placeAt(order.begins, u.posToVal(left, "x"));
    let first = place;
    let end = place + 1;
    if (!isApart(visible(u, order.begins))) {
        first = placeAt(order.begins, u.posToVal(left - 0.5, "x"));
        end = Math.max(placeAt(order.begins, u.posToVal(left + 0.5, "x")), first) + 1;
    }
    return {first, end};
}

function showDetails(u, order, event) {
    if (pictureCount === 0 || u.cursor.left < 0) return;
    const {first, end} = placesAt(u, order, u.cursor.left);
    let p = order.pictures[first];
    let sum = 0;
    let least = Infinity;
    for (let i = first; i < end; ++i) {
        const bytes = columns.bytes[order.pictures[i]];
        sum += bytes;
        least = Math.min(least, bytes);
        if (bytes > columns.bytes[p]) p = order.pictures[i];
    }
    const details = document.getElementById("details");
    details.replaceChildren();
    details.dataset.picture = p;
    details.dataset.count = end - first;
    const add = (parent, tag, string) => Object.assign(parent.appendChild(document.createElement(tag)), {textContent: string});
    if (end - first > 1)
        add(details, "p", grouped(end - first) + " pictures here, of " + grouped(least) + " to " + grouped(columns.bytes[p]) +
            " bytes, mean " + grouped(sum / (end - first)) + "; the largest:");
    add(details, "h3", "Picture " + grouped(p) + " in decoding order, " + grouped(output.places[p]) + " in output order");
    if (hasTime)
        add(details, "p", "decoding " + timeText(decoding.begins[p]) + ", output " + timeText(output.begins[output.places[p]]));
    const list = details.appendChild(document.createElement("dl"));
    for (const [key, name, string, bad] of rowsOf(p)) {
        add(list, "dt", name);
        const value = add(list, "dd", string);
        value.dataset.key = key;
        if (bad) value.className = "bad";
    }
    details.hidden = false;
    const room = {x: document.documentElement.clientWidth, y: document.documentElement.clientHeight};
    const x = event.clientX + 16 + details.offsetWidth < room.x ? event.clientX + 16 : event.clientX - 16 - details.offsetWidth;
    const y = Math.min(event.clientY + 12, room.y - details.offsetHeight - 6);
    details.style.left = Math.max(x, 4) + "px";
    details.style.top = Math.max(y, 4) + "px";
}

function hideDetails() {
    document.getElementById("details").hidden = true;
}
