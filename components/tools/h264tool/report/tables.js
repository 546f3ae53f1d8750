// What is told without charts.

function element(tag, properties, ...children) {
    const node = Object.assign(document.createElement(tag), properties);
    node.append(...children);
    return node;
}

function range(numbers) {
    if (numbers.length === 0) return "none";
    let least = Infinity;
    let greatest = -Infinity;
    let sum = 0;
    for (const number of numbers) {
        least = Math.min(least, number);
        greatest = Math.max(greatest, number);
        sum += number;
    }
    return least === greatest ? String(least) : least + " to " + greatest + ", mean " + +(sum / numbers.length).toFixed(2);
}

// The order of types that most groups of pictures have, without the last group, which the end may have cut.
function usualPattern() {
    const counts = new Map();
    for (const gop of gops.length > 1 ? gops.slice(0, -1) : gops) {
        const pattern = report.types.slice(gop.first, gop.first + gop.length).replaceAll("D", "I");
        counts.set(pattern, (counts.get(pattern) || 0) + 1);
    }
    const [pattern, count] = [...counts].sort((a, b) => b[1] - a[1])[0];
    const short = pattern.replace(/(.{1,8}?)\1{2,}/g, (all, part) => " " + part + "×" + all.length / part.length + " ").trim();
    return [short.length > 40 ? short.slice(0, 40) + "…" : short, count];
}

function showFacts() {
    const facts = [];
    const count = letter => report.types.split(letter).length - 1;
    facts.push(["Size", grouped(report.size) + " bytes"]);
    if (hasTime && pictureCount > 0)
        facts.push(["Duration", timeText(streamEnd), assumedCount > 0 ? "the frame rate is not known throughout" :
            "mean bit rate " + short(8 * report.size / streamEnd) + "bit/s"]);
    facts.push(["Pictures", grouped(pictureCount),
                grouped(count("D") + count("I")) + " I, " + grouped(count("P")) + " P, " + grouped(count("B")) + " B"]);
    if (pictureCount > 0) {
        const [pattern, same] = usualPattern();
        const idr = gops.filter(gop => gop.closed).map(gop => gop.first);
        facts.push(["GOPs, from I to I", grouped(gops.length), "length " + range(gops.map(gop => gop.length))]);
        facts.push(["IDR pictures", grouped(count("D")), "distance " + range(idr.slice(1).map((p, i) => p - idr[i]))]);
        facts.push(["Usual pattern", pattern, same + " of " + grouped(Math.max(gops.length - 1, 1)) + " GOPs, decoding order"]);
    }
    for (const hrd of report.hrds) {
        const schedules = new Set(report.sequences.map(sequence => sequence[hrd.key]).filter(Boolean)
            .map(one => short(one.bit_rate) + "bit/s, " + short(one.cpb_size) + "bit, " + (one.cbr_flag ? "CBR" : "VBR")));
        const [first, ...others] = schedules;
        facts.push([hrd.name + " HRD", first, others.length > 0 ? "and " + others.slice(0, 3).join("; ") : ""]);
    }
    document.getElementById("facts").replaceChildren(...facts.map(([name, value, more]) =>
        element("div", {}, element("dt", {textContent: name}),
                element("dd", {textContent: value}, element("small", {textContent: more || ""})))));
    document.title = report.file + ": h264tool report";
    document.getElementById("title").textContent = report.file;
    const names = [...new Set(report.sequences.map(sequence => sequence.name))];
    document.getElementById("subtitle").textContent =
        names.slice(0, 3).join(" · ") + (names.length > 3 ? " and " + (names.length - 3) + " others" : "");
}

// Shows the surroundings of a picture.
function goTo(p) {
    const order = shownOrder;
    const position = p < pictureCount ? order.begins[order.places[p]] : streamEnd;
    const room = hasTime ? 1 : 30;
    setView(position - room, position + room);
    document.getElementById("charts").scrollIntoView({behavior: "smooth"});
}

function showProblems() {
    const kMostEntries = 100;
    const where = p => "picture " + grouped(p) + (hasTime ? " at " + timeText(decoding.begins[p]) : "");
    const kinds = report.hrds.flatMap(hrd => [
        ["underflow of the " + hrd.name + " buffer", hrd.underflows.map(p => [p, hrd.name + " underflow, " + where(p)])],
        ["overflow of the " + hrd.name + " buffer", hrd.overflows.map(p => [p, hrd.name + " overflow, " + where(p)])],
        ["place where the " + hrd.name + " HRD begins anew",
         hrd.starts.slice(1).map(p => [p, hrd.name + " HRD begins anew, " + where(p)])]]);
    kinds.push(["jump of timecodes", [...jumps.keys()].map(p => [p, "Timecode jump " + jumpText(p) + ", " + where(p)])]);
    kinds.push(["jump of precision time",
                [...timeJumps.keys()].map(p => [p, "Precision time by " + intervalText(timeJumps.get(p) / 1e6) + ", " + where(p)])]);
    const found = kinds.filter(([, entries]) => entries.length > 0);
    const section = document.getElementById("problems");
    const counts = found.map(([name, entries]) =>
        grouped(entries.length) + " " + (entries.length === 1 ? name : name.replace(/^(\w+)/, "$1s")));
    if (report.damaged_units > 0)
        counts.push(grouped(report.damaged_units) + (report.damaged_units === 1 ? " unit" : " units") + " that cannot be parsed");
    section.className = counts.length > 0 ? "bad" : "";
    const checked = [];
    const unchecked = [];
    for (const hrd of report.hrds) {
        const count = hrd.removal.filter(time => !isNaN(time)).length;
        if (count > 0) checked.push(hrd.name + " buffer");
        if (count === 0) unchecked.push(hrd.name + " buffer not checked: no removal time is known");
        else if (count < pictureCount)
            unchecked.push(hrd.name + " buffer checked at " + grouped(count) + " of " + grouped(pictureCount) + " pictures");
    }
    if (columns.timecode.some(t => !isNaN(t))) checked.push("timecodes");
    section.append(element("strong", {textContent: counts.length > 0 ? counts.join(", ") :
        checked.length > 0 ? "Nothing amiss: " + checked.join(", ") : "No HRD timing and no timecodes to look at"}));
    const list = element("ul", {});
    if (assumedCount > 0)
        unchecked.push(hasTime ? grouped(assumedCount) + " of " + grouped(pictureCount) + " pictures without a frame rate: " +
            "times go on at the rate beside them" : "No frame rate: pictures in place of times, no bit rate");
    for (const text of unchecked) list.append(element("li", {textContent: text}));
    for (const [name, entries] of found) {
        for (const [p, string] of entries.slice(0, kMostEntries))
            list.append(element("li", {}, element("button", {type: "button", textContent: string, onclick: () => goTo(p)})));
        if (entries.length > kMostEntries)
            list.append(element("li", {textContent: "and " + grouped(entries.length - kMostEntries) + " more: " + name}));
    }
    for (const complaint of report.complaints) list.append(element("li", {textContent: complaint}));
    if (list.children.length > 0) section.append(list);
}

function showLegend() {
    const entries = [["idr", "IDR"], ["i", "I"], ["p", "P"], ["b", "B"]];
    document.getElementById("legend").replaceChildren(...entries.map(([name, label]) => {
        const swatch = element("span", {className: "swatch"});
        swatch.style.background = "var(--" + name + ")";
        return element("span", {}, swatch, label);
    }));
}

// The elements of a parameter set under their full names.
function flatten(value, name, into) {
    if (Array.isArray(value) && value.every(item => typeof item !== "object" || item === null)) into.set(name, value.join(" "));
    else if (typeof value === "object" && value !== null)
        for (const [key, member] of Object.entries(value))
            flatten(member, Array.isArray(value) ? name + "[" + key + "]" : name ? name + "." + key : key, into);
    else into.set(name, String(value));
    return into;
}

function setTable(versions) {
    const elements = versions.map(version => flatten(version.elements, "", new Map()));
    const names = [...new Set(elements.flatMap(version => [...version.keys()]))];
    const rows = names.map(name => {
        const cells = elements.map((version, i) => {
            const value = version.get(name) ?? "";
            const changed = i > 0 && value !== (elements[i - 1].get(name) ?? "");
            return element("td", {textContent: value, className: changed ? "changed" : ""});
        });
        const same = cells.every(cell => cell.className === "");
        return element("tr", {className: same ? "same" : ""}, element("th", {scope: "row", textContent: name}), ...cells);
    });
    const heads = versions.map(version => element("th", {
        scope: "col", textContent: "unit " + grouped(version.unit) + ", offset " + grouped(version.offset) + ", before picture " +
            grouped(version.picture) + (version.units > 1 ? "; " + grouped(version.units) + " times" : "")}));
    return element("table", {}, element("thead", {}, element("tr", {}, element("th", {}), ...heads)),
                   element("tbody", {}, ...rows));
}

function showSets() {
    const byName = new Map();
    for (const set of report.sets) {
        const name = set.kind + " " + set.id;
        byName.set(name, [...(byName.get(name) || []), set]);
    }
    const section = document.getElementById("sets");
    section.append(element("h2", {textContent: "Parameter sets"}));
    if (report.sets_left_out > 0)
        section.append(element("p", {textContent: grouped(report.sets_left_out) + " later changes are left out."}));
    for (const [name, versions] of byName) {
        const units = versions.reduce((sum, version) => sum + version.units, 0);
        const changes = versions.length - 1;
        const body = element("div", {className: "scroll"});
        const details = element("details", {id: name.toLowerCase().replace(" ", "-"), open: changes > 0},
            element("summary", {textContent: name + ": " + grouped(units) + (units === 1 ? " unit" : " units") + ", " +
                (changes === 0 ? "no change" : changes === 1 ? "1 change" : grouped(changes) + " changes")}));
        const table = setTable(versions);
        if (changes > 0) {
            const box = element("input", {type: "checkbox", checked: true});
            table.className = "short";
            box.addEventListener("change", () => table.classList.toggle("short", box.checked));
            details.append(element("label", {}, box, " only what changed"));
        }
        body.append(table);
        details.append(body);
        section.append(details);
    }
}
