// Draws the grid of tone curves: one small plot for each tile of the picture, shadows at the left, with the line of no change.
import {clamp, html, styled, svg} from "./elements.js";

const plot = 100; // units per side of a plot
const gap = 8;
const step = 8; // entries between two points of a line

function pointsOf(values, strength) {
    const last = values.length - 1;
    const points = [];
    for (let entry = 0; entry <= last; entry = entry === last ? last + 1 : Math.min(entry + step, last)) {
        const level = (entry / last) * 255;
        const mixed = level + (values[entry] - level) * strength;
        points.push(`${((entry / last) * plot).toFixed(1)} ${(plot - (mixed / 255) * plot).toFixed(1)}`);
    }
    return points;
}

// What the drawing shows, in words: the tile whose curve rises most.
export function describeCurves({columns, rows, entries, values}) {
    let best = {rise: 0, tile: 0};
    for (let at = 0; at < values.length; ++at) {
        const rise = values[at] - ((at % entries) / (entries - 1)) * 255;
        best = rise > best.rise ? {rise, tile: Math.floor(at / entries)} : best;
    }
    const place = `column ${(best.tile % columns) + 1}, row ${Math.floor(best.tile / columns) + 1}`;
    return `${columns} by ${rows} tone curves. The largest rise is ${Math.round(best.rise)} of 255 levels, in ${place}.`;
}

// The drawing over a dimmed picture, and a function that draws it for another strength.
export function curveGrid(curves, url, size, strength) {
    const {columns, rows, entries, values} = curves;
    const [width, height] = [columns * plot + (columns + 1) * gap, rows * plot + (rows + 1) * gap];
    const label = describeCurves(curves);
    const drawing = svg("svg", {
        viewBox: `0 0 ${width} ${height}`,
        preserveAspectRatio: "none",
        role: "img",
        "aria-label": label,
    });
    const lines = Array.from({length: columns * rows}, (_, tile) => {
        const left = gap + (tile % columns) * (plot + gap);
        const top = gap + Math.floor(tile / columns) * (plot + gap);
        const area = svg("path", {class: "area"});
        const line = svg("path", {class: "curve"});
        const ground = svg("rect", {width: plot, height: plot});
        const identity = svg("path", {class: "identity", d: `M0 ${plot}L${plot} 0`});
        drawing.append(svg("g", {transform: `translate(${left} ${top})`}, ground, area, identity, line));
        return {area, line};
    });
    const draw = (share) => {
        for (const [tile, {area, line}] of lines.entries()) {
            const path = `M${pointsOf(values.subarray(tile * entries, (tile + 1) * entries), share).join("L")}`;
            line.setAttribute("d", path);
            area.setAttribute("d", `${path}Z`); // closed by the line of no change
        }
    };
    draw(strength);
    const figure = html("div", {class: "tiles"}, html("img", {src: url, alt: "", decoding: "async"}), drawing);
    return {element: styled(figure, {"--aspect": String(clamp(size.width / size.height, 1, 1.4))}), draw};
}
