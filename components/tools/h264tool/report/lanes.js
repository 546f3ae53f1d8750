// Lanes: what the pictures are and what they carry.

const AFD_NAMES = ["undefined", "reserved", "box 16:9 (top)", "box 14:9 (top)", "box > 16:9 (centre)", "reserved",
    "reserved", "reserved", "full frame", "4:3 (centre)", "16:9 (centre)", "14:9 (centre)", "reserved",
    "4:3 (shoot and protect 14:9)", "16:9 (shoot and protect 14:9)", "16:9 (shoot and protect 4:3)"];

function text(ctx, string, centre, middle, room, style) {
    if (ctx.measureText(string).width > room - 4 * devicePixelRatio) return;
    ctx.fillStyle = style;
    ctx.fillText(string, centre, middle);
}

// Stretches of pictures in the shown order with the same value that draw paints; nothing where the value is null.
function drawStretches(view, order, valueOf, paint) {
    for (let i = view.first; i < view.end;) {
        const value = valueOf(order.pictures[i], i);
        let next = i + 1;
        while (next < view.end && valueOf(order.pictures[next], next) === value) ++next;
        const last = order.pictures[next - 1];
        if (value !== null)
            paint(value, view.x(order.begins[i]), view.x(order.begins[next - 1] + durations[last]), i);
        i = next;
    }
}

function drawGops(ctx, view, order, row) {
    gops.forEach((gop, i) => {
        // In output order the pictures of an open group lie on both sides of its I picture.
        const left = view.x(order.begins[order.places[gop.first]]);
        const next = gops[i + 1];
        const right = next ? view.x(order.begins[order.places[next.first]]) : view.x(order.end);
        if (right < view.left || left > view.right) return;
        ctx.fillStyle = colour(gop.closed ? "idr" : "i");
        ctx.globalAlpha = i % 2 === 0 ? 0.45 : 0.7;
        ctx.fillRect(left, row.top, Math.max(right - left, 1), row.height);
        ctx.globalAlpha = 1;
        text(ctx, String(gop.length), (left + right) / 2, row.middle, right - left, colour("text"));
    });
}

function drawTypes(ctx, view, order, row) {
    const colours = Object.fromEntries(Object.entries(TYPE_COLOURS).map(([type, name]) => [type, colour(name)]));
    if (isApart(view)) {
        for (let i = view.first; i < view.end; ++i) {
            const p = order.pictures[i];
            const left = view.x(order.begins[i]);
            const width = view.x(order.begins[i] + durations[p]) - left;
            ctx.fillStyle = colours[report.types[p]];
            ctx.fillRect(left, row.top, Math.max(width - (width > 4 ? 1 : 0), 1), row.height);
            text(ctx, TYPE_NAMES[report.types[p]], left + width / 2, row.middle, width,
                 report.types[p] === "P" ? "#ffffff" : "#000000");
        }
        return;
    }
    // How many of each there are, as parts of the height.
    forEachColumn(view, order.begins, 2, (column, width, first, end) => {
        let top = row.top;
        for (const type of ["D", "I", "P", "B"]) {
            let count = 0;
            for (let i = first; i < end; ++i) count += report.types[order.pictures[i]] === type;
            const height = row.height * count / (end - first);
            ctx.fillStyle = colours[type];
            ctx.fillRect(column, top, width, height);
            top += height;
        }
    });
}

function drawPresence(ctx, view, order, row, valueOf, styleOf, labelOf) {
    drawStretches(view, order, valueOf, (value, left, right) => {
        ctx.fillStyle = styleOf(value);
        ctx.fillRect(left, row.top, Math.max(right - left, 1), row.height);
        if (labelOf) text(ctx, labelOf(value), (Math.max(left, view.left) + Math.min(right, view.right)) / 2, row.middle,
                          Math.min(right, view.right) - Math.max(left, view.left), colour("back"));
    });
}

function addLanes() {
    const has = column => columns[column].some(value => !isNaN(value));
    // The number of the stretch without a jump that a timecode lies in.
    const stretches = new Float64Array(pictureCount).fill(NaN);
    let stretch = 0;
    for (const p of output.pictures) {
        if (jumps.has(p)) ++stretch;
        if (!isNaN(columns.timecode[p])) stretches[p] = stretch % 2;
    }
    const setChanges = [...new Set(report.sets.map(set => set.picture))];
    const position = order => p => p < pictureCount ? order.begins[order.places[p]] : streamEnd;
    const formats = [...new Set(columns.active_format)];
    const lanes = [
        ["GOPs", drawGops],
        ["Pictures", drawTypes],
        has("timecode") && ["Timecode", (ctx, view, order, row, u) => {
            drawPresence(ctx, view, order, row, p => isNaN(stretches[p]) ? null : stretches[p],
                         value => colour(value === 0 ? "lane" : "lane-2"));
            drawMarks(u, [...jumps.keys()], position(order), true, row.top);
        }],
        has("cc_count") && ["Captions", (ctx, view, order, row) =>
            drawPresence(ctx, view, order, row, p => isNaN(columns.cc_count[p]) ? null : columns.cc_active[p] > 0,
                         active => colour(active ? "captions" : "lane-2"))],
        has("active_format") && ["AFD", (ctx, view, order, row) =>
            drawPresence(ctx, view, order, row, p => isNaN(columns.active_format[p]) ? null : columns.active_format[p],
                         format => colour(formats.indexOf(format) % 2 === 0 ? "lane" : "nal"),
                         format => format < 0 ? "none" : format + " " + AFD_NAMES[format])],
        has("microseconds") && ["Precision time", (ctx, view, order, row, u) => {
            drawPresence(ctx, view, order, row, p => isNaN(columns.microseconds[p]) ? null : 1, () => colour("lane"));
            drawMarks(u, [...timeJumps.keys()], position(order), true, row.top);
        }],
        setChanges.length > 0 && ["SPS, PPS", (ctx, view, order, row, u) =>
            drawSetChanges(ctx, view, row, setChanges.map(position(order)))],
    ].filter(Boolean);
    addChart("lanes", {
        title: "Pictures and what they carry", height: lanes.length * 25 + 34,
        note: "GOPs with their lengths" + (jumps.size + timeJumps.size > 0 ? "; ▼ jump" : "") +
            (has("cc_count") ? "; captions: grey where there is padding alone" : ""),
        values: order => order.begins,
        range: () => [0, lanes.length],
        axis: {splits: () => lanes.map((_, i) => lanes.length - i - 0.5), grid: {show: false}, ticks: {show: false},
               values: () => lanes.map(([name]) => name)},
        draw: (u, order) => clipped(u, ctx => {
            const view = visible(u, order.begins);
            ctx.textAlign = "center";
            ctx.textBaseline = "middle";
            ctx.font = 11 * devicePixelRatio + "px system-ui, sans-serif";
            const height = view.height / lanes.length;
            lanes.forEach(([, draw], i) => {
                const row = {top: view.top + i * height + 2 * devicePixelRatio, height: height - 4 * devicePixelRatio};
                row.middle = row.top + row.height / 2;
                draw(ctx, view, order, row, u);
            });
        }),
    });
}

function drawSetChanges(ctx, view, row, positions) {
    ctx.fillStyle = colour("limit");
    for (const position of positions)
        ctx.fillRect(view.x(position), row.top, 2 * devicePixelRatio, row.height);
}
