// Puts the page together.

function showOrder(order) {
    shownOrder = order;
    document.getElementById("order-output").setAttribute("aria-pressed", String(order === output));
    document.getElementById("order-decoding").setAttribute("aria-pressed", String(order === decoding));
    refreshCharts();
}

showFacts();
showProblems();
showLegend();
showSets();
addCharts();
setView(0, whole.max);
showOrder(output);

document.getElementById("order-output").addEventListener("click", () => showOrder(output));
document.getElementById("order-decoding").addEventListener("click", () => showOrder(decoding));
for (const button of document.querySelectorAll("[data-zoom]"))
    button.addEventListener("click", () => zoom(button.dataset.zoom));
document.addEventListener("keydown", event => {
    if (event.ctrlKey || event.metaKey || event.altKey || event.target.tagName === "INPUT") return;
    const how = {"+": "in", "=": "in", "-": "out", "0": "all", ArrowLeft: "back", ArrowRight: "on"}[event.key];
    if (!how) return;
    event.preventDefault();
    zoom(how);
});
window.addEventListener("resize", resizeCharts);
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", refreshCharts);
document.body.dataset.ready = "true";
