// The charts, which show the same stretch of time.

const charts = [];
let shownOrder = output;
const AXIS_SIZE = 84;
const whole = {min: 0, max: Math.max(streamEnd, hasTime ? 1e-3 : 1)};
let view = whole;

function timeText(seconds, digits = 3) {
    const sign = seconds < 0 ? "-" : "";
    const total = Math.round(Math.abs(seconds) * 10 ** digits) / 10 ** digits;
    const minutes = Math.floor(total / 60);
    const rest = (total - minutes * 60).toFixed(digits).padStart(digits > 0 ? digits + 3 : 2, "0");
    const hours = Math.floor(minutes / 60);
    return sign + (hours > 0 ? hours + ":" + String(minutes % 60).padStart(2, "0") : minutes) + ":" + rest;
}

function grouped(number) {
    return Math.round(number).toLocaleString("en");
}

// 1,234 -> "1.23 k", for axes
function short(value) {
    for (const [size, prefix] of [[1e9, " G"], [1e6, " M"], [1e3, " k"]])
        if (Math.abs(value) >= size) return +(value / size).toPrecision(3) + prefix;
    return String(+value.toPrecision(3));
}

// The stretch that all charts show; it stays within the stream and has at least two pictures or so.
function setView(min, max) {
    const least = Math.min(whole.max, 4 * whole.max / Math.max(pictureCount, 1));
    const length = Math.min(Math.max(max - min, least), whole.max);
    const begin = Math.min(Math.max((min + max - length) / 2, 0), whole.max - length);
    view = {min: begin, max: begin + length};
    for (const chart of charts) chart.setScale("x", view);
    showRange();
}

function showRange() {
    const first = placeAt(shownOrder.begins, view.min);
    const last = placeAt(shownOrder.begins, view.max);
    document.getElementById("range").textContent = pictureCount === 0 ? "no picture" :
        (hasTime ? timeText(view.min) + " to " + timeText(view.max) + " · " : "") +
        grouped(last - first + 1) + " of " + grouped(pictureCount) + " pictures";
}

function zoom(how) {
    const length = view.max - view.min;
    if (how === "all") setView(0, whole.max);
    else if (how === "in") setView(view.min + length / 4, view.max - length / 4);
    else if (how === "out") setView(view.min - length / 2, view.max + length / 2);
    else setView(view.min + (how === "on" ? length / 2 : -length / 2), view.max + (how === "on" ? length / 2 : -length / 2));
}

function onWheel(u, event) {
    if (!event.ctrlKey && !event.metaKey && !event.shiftKey) return;
    event.preventDefault();
    const length = view.max - view.min;
    const turn = Math.sign(event.deltaY || event.deltaX);
    if (event.shiftKey) {
        setView(view.min + turn * length / 8, view.max + turn * length / 8);
        return;
    }
    const centre = u.posToVal(u.cursor.left, "x");
    const factor = turn > 0 ? 1.5 : 1 / 1.5;
    setView(centre - (centre - view.min) * factor, centre + (view.max - centre) * factor);
}

// options: title, note, height, order (that the x values are of), values and top for the scale of y, axisValues, draw
function addChart(id, options) {
    const section = document.createElement("section");
    section.className = "chart";
    section.id = id;
    const heading = section.appendChild(document.createElement("h2"));
    heading.textContent = options.title;
    heading.appendChild(document.createElement("small")).textContent = options.note;
    const place = section.appendChild(document.createElement("div"));
    document.getElementById("charts").appendChild(section);

    const axis = {stroke: () => colour("muted"), grid: {stroke: () => colour("grid"), width: 1},
                  ticks: {stroke: () => colour("line"), width: 1, size: 5}, font: "11px system-ui, sans-serif"};
    const order = () => options.order || shownOrder;
    const chart = new uPlot({
        width: place.clientWidth,
        height: options.height,
        legend: {show: false},
        scales: {
            x: {time: false, range: (u, min, max) => [min, max]},
            y: {range: options.range || (u => [0, 1.08 * Math.max(options.top(), mostShown(u)) || 1])},
        },
        axes: [
            {...axis, size: 30, space: 90,
             incrs: hasTime ? [1e-3, 2e-3, 5e-3, .01, .02, .05, .1, .2, .5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600,
                               7200, 14400] : [1, 2, 5, 10, 20, 50, 100, 200, 500, 1e3, 2e3, 5e3, 1e4, 2e4, 5e4, 1e5, 2e5, 5e5, 1e6],
             values: (u, splits, index, space, step) =>
                 splits.map(split => hasTime ? timeText(split, step < .01 ? 3 : step < .1 ? 2 : step < 1 ? 1 : 0) : grouped(split))},
            {...axis, size: AXIS_SIZE, values: (u, splits) => splits.map(options.axisValue || short), ...options.axis},
        ],
        series: [{}, {paths: () => null, points: {show: false}}],
        cursor: {
            y: false,
            points: {show: false},
            drag: {x: true, y: false, setScale: false, dist: 5},
            sync: {key: "report", filters: {pub: type => type === "mousemove" || type === "mouseleave"}},
            bind: {dblclick: () => () => setView(0, whole.max)},
        },
        hooks: {
            draw: [u => options.draw(u, order())],
            setSelect: [u => {
                if (u.select.width < 2) return;
                const begin = u.posToVal(u.select.left, "x");
                const end = u.posToVal(u.select.left + u.select.width, "x");
                u.setSelect({left: 0, top: 0, width: 0, height: 0}, false);
                setView(begin, end);
            }],
        },
    }, [order().begins, options.values(order())], place);
    chart.over.addEventListener("mousemove", event => showDetails(chart, order(), event));
    chart.over.addEventListener("mouseleave", hideDetails);
    chart.over.addEventListener("wheel", event => onWheel(chart, event), {passive: false});
    chart.refresh = () => {
        if (!options.order) chart.setData([order().begins, options.values(order())], false);
        chart.setScale("x", view);
        chart.redraw(false, true);
    };
    chart.place = place;
    charts.push(chart);
}

function inOrder(values, order) {
    return Float64Array.from(order.pictures, picture => values[picture]);
}

// The largest of a chart's values that can be seen.
function mostShown(u) {
    const [begins, values] = u.data;
    const end = placeAt(begins, view.max) + 1;
    let result = 0;
    for (let i = placeAt(begins, view.min); i < end; ++i) if (values[i] > result) result = values[i];
    return result;
}

function most(values) {
    let result = 0;
    for (const value of values) if (value > result) result = value;
    return result;
}

function addCharts() {
    addChart("sizes", {
        title: "Picture sizes", note: "bytes of each access unit", height: 230,
        values: order => inOrder(columns.bytes, order), top: () => 0,
        draw: drawPictureSizes,
    });
    addLanes();
    if (hasTime && pictureCount > 0) {
        const limits = report.sequences.flatMap(sequence => report.hrds.map(hrd => sequence[hrd.key]?.bit_rate ?? 0));
        addChart("rate", {
            title: "Bit rate", height: 180, order: decoding, values: () => rates, top: () => most(limits),
            note: "bits in the last second, in decoding order" + (limits.length > 0 ? "; dashed: bit rate of the HRD" : ""),
            draw: u => {
                drawLine(u, rates, rates, "rate");
                for (const hrd of report.hrds) drawLimits(u, sequence => sequence[hrd.key]?.bit_rate ?? null);
            },
        });
    }
    for (const hrd of report.hrds) {
        const after = hrd.fullness.map((bits, p) => Math.max(bits - hrd.bits[p], 0));
        addChart("cpb-" + hrd.key, {
            title: "Coded picture buffer, " + hrd.name + " HRD", height: 180, order: decoding,
            note: "bits before and after each removal, in decoding order; dashed: size of the buffer" +
                "; ▼ overflow, ▲ underflow",
            values: () => hrd.fullness, top: () => most(report.sequences.map(sequence => sequence[hrd.key]?.cpb_size ?? 0)),
            draw: u => {
                drawLine(u, after, hrd.fullness, hrd.key, hrd.startSet);
                drawLimits(u, sequence => sequence[hrd.key]?.cpb_size ?? null);
                drawMarks(u, hrd.overflows, p => decoding.begins[p], true);
                drawMarks(u, hrd.underflows, p => decoding.begins[p], false);
            },
        });
    }
}

function refreshCharts() {
    for (const chart of charts) chart.refresh();
    showRange();
}

function resizeCharts() {
    for (const chart of charts) chart.setSize({width: chart.place.clientWidth, height: chart.height});
}
