// Drawing on the canvas of a chart. Where a pixel stands for several pictures, they are drawn together.

function colour(name) {
    return getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
}

const TYPE_COLOURS = {D: "idr", I: "i", P: "p", B: "b"};
const TYPE_NAMES = {D: "IDR", I: "I", P: "P", B: "B"};

// What of an order can be seen: places from first to end, and where a position is on the canvas.
function visible(u, begins) {
    const {min, max} = u.scales.x;
    const {left, width, top, height} = u.bbox;
    const scale = width / (max - min);
    return {
        first: placeAt(begins, min),
        end: Math.min(placeAt(begins, max) + 1, begins.length),
        x: position => left + (position - min) * scale,
        y: value => u.valToPos(value, "y", true),
        left, width, top, height, right: left + width, bottom: top + height,
    };
}

// Whether pictures are drawn one by one.
function isApart(view) {
    return (view.end - view.first) * 2 * devicePixelRatio <= view.width;
}

// Calls back for each column, so many pixels wide, with the places in it.
function forEachColumn(view, begins, pixels, draw) {
    const width = Math.round(pixels * devicePixelRatio);
    const columnOf = place => Math.floor((view.x(begins[place]) - view.left) / width);
    for (let first = view.first; first < view.end;) {
        const column = columnOf(first);
        let end = first + 1;
        while (end < view.end && columnOf(end) === column) ++end;
        draw(view.left + column * width, width, first, end);
        first = end;
    }
}

function clipped(u, draw) {
    const {ctx} = u;
    const {left, top, width, height} = u.bbox;
    ctx.save();
    ctx.beginPath();
    ctx.rect(left, top, width, height);
    ctx.clip();
    draw(ctx);
    ctx.restore();
}

function drawPictureSizes(u, order) {
    const view = visible(u, order.begins);
    const colours = Object.fromEntries(Object.entries(TYPE_COLOURS).map(([type, name]) => [type, colour(name)]));
    clipped(u, ctx => {
        if (isApart(view)) {
            for (let i = view.first; i < view.end; ++i) {
                const p = order.pictures[i];
                const left = view.x(order.begins[i]);
                const width = view.x(order.begins[i] + durations[p]) - left;
                ctx.fillStyle = colours[report.types[p]];
                ctx.fillRect(left, view.y(columns.bytes[p]), Math.max(width - (width > 4 ? 1 : 0), 1), view.bottom);
            }
            return;
        }
        forEachColumn(view, order.begins, 2, (column, width, first, end) => {
            const largest = {};
            for (let i = first; i < end; ++i) {
                const p = order.pictures[i];
                const type = report.types[p];
                largest[type] = Math.max(largest[type] || 0, columns.bytes[p]);
            }
            for (const [type, bytes] of Object.entries(largest).sort((a, b) => b[1] - a[1])) {
                ctx.fillStyle = colours[type];
                ctx.fillRect(column, view.y(bytes), width, view.bottom);
            }
        });
        const means = new Path2D();
        forEachColumn(view, order.begins, 16, (column, width, first, end) => {
            let sum = 0;
            for (let i = first; i < end; ++i) sum += columns.bytes[order.pictures[i]];
            means.lineTo(column + width / 2, view.y(sum / (end - first)));
        });
        ctx.strokeStyle = colour("back");
        ctx.lineWidth = 3 * devicePixelRatio;
        ctx.stroke(means);
        ctx.strokeStyle = colour("text");
        ctx.lineWidth = 1.2 * devicePixelRatio;
        ctx.stroke(means);
    });
}

// A line through the values of pictures in decoding order, or a band from the lowest to the highest and their mean.
// low and high: the values of a picture just after and just before its time, which are the same for a plain line.
// starts: pictures at which the line begins anew
function drawLine(u, low, high, name, starts = new Set()) {
    const view = visible(u, decoding.begins);
    view.end = Math.min(view.end + 1, pictureCount);
    clipped(u, ctx => {
        ctx.lineWidth = 1.5 * devicePixelRatio;
        ctx.strokeStyle = colour(name);
        const line = new Path2D();
        let open = false;
        const point = (x, value) => {
            if (isNaN(value)) open = false;
            else if (open) line.lineTo(x, view.y(value));
            else line.moveTo(x, view.y(value));
            open = !isNaN(value);
        };
        if (isApart(view)) {
            for (let p = view.first; p < view.end; ++p) {
                if (starts.has(p)) open = false;
                point(view.x(decoding.begins[p]), high[p]);
                if (low !== high) point(view.x(decoding.begins[p]), low[p]);
            }
        } else {
            ctx.fillStyle = colour(name + "-band");
            forEachColumn(view, decoding.begins, 1, (column, width, first, end) => {
                let least = Infinity;
                let most = -Infinity;
                let sum = 0;
                let count = 0;
                for (let p = first; p < end; ++p) {
                    if (isNaN(high[p])) continue;
                    least = Math.min(least, low[p]);
                    most = Math.max(most, high[p]);
                    sum += (low[p] + high[p]) / 2;
                    ++count;
                }
                point(column + width / 2, count > 0 ? sum / count : NaN);
                if (count === 0) return;
                const top = view.y(most);
                ctx.fillRect(column, top, width, Math.max(view.y(least) - top, 1));
            });
        }
        ctx.stroke(line);
    });
}

// A dashed line for each sequence at a value that it has.
function drawLimits(u, valueOf) {
    const view = visible(u, decoding.begins);
    clipped(u, ctx => {
        ctx.strokeStyle = colour("limit");
        ctx.lineWidth = devicePixelRatio;
        ctx.setLineDash([6 * devicePixelRatio, 4 * devicePixelRatio]);
        report.sequences.forEach((sequence, i) => {
            const value = valueOf(sequence);
            if (value === null) return;
            const next = report.sequences[i + 1];
            ctx.beginPath();
            ctx.moveTo(view.x(decoding.begins[sequence.first]), view.y(value));
            ctx.lineTo(view.x(next ? decoding.begins[next.first] : streamEnd), view.y(value));
            ctx.stroke();
        });
    });
}

// Triangles at pictures: pointing down at the top of the chart, or up at its bottom. position: of a picture
function drawMarks(u, pictures, position, pointsDown, y) {
    const view = visible(u, decoding.begins);
    const size = 6 * devicePixelRatio;
    clipped(u, ctx => {
        ctx.fillStyle = colour("bad");
        let last = -Infinity;
        for (const p of pictures) {
            const x = view.x(position(p));
            if (x < view.left - size || x > view.right + size || Math.abs(x - last) < 1) continue;
            last = x;
            const base = y === undefined ? (pointsDown ? view.top : view.bottom) : y;
            ctx.beginPath();
            ctx.moveTo(x - size, base);
            ctx.lineTo(x + size, base);
            ctx.lineTo(x, base + (pointsDown ? 1.6 : -1.6) * size);
            ctx.fill();
        }
    });
}
