// A picture before and after, under a divider that follows mouse, touch and arrow keys. The strength of the enhancement is the
// opacity of the enhanced layer, so that it changes at once, without a new result.
import {clamp, html, percent, styled} from "./elements.js";

const mostEnlarged = 2;

const layer = (name, url, text) =>
    url ? html("img", {class: name, src: url, alt: text, draggable: "false", decoding: "async"}) : null;

function frameOf(place, number, size) {
    const [left, top, right, bottom] = place.box;
    const frame = html("div", {class: "place"}, html("span", {}, String(number)));
    frame.classList.toggle("low", top < 0.08 * size.height);
    return styled(frame, {
        left: percent(left / size.width),
        top: percent(top / size.height),
        width: percent((right - left) / size.width),
        height: percent((bottom - top) / size.height),
    });
}

function follow(stage, input, show) {
    const move = (event) => {
        const frame = stage.getBoundingClientRect();
        input.value = String(Math.round(clamp((event.clientX - frame.left) / frame.width, 0, 1) * 100));
        show();
    };
    stage.addEventListener("pointerdown", (event) => {
        if (event.button === 0) {
            stage.setPointerCapture(event.pointerId);
            input.focus({preventScroll: true});
            move(event);
        }
    });
    stage.addEventListener("pointermove", (event) => {
        if (stage.hasPointerCapture(event.pointerId)) {
            move(event);
        }
    });
}

function divider(stage, name) {
    const input = html("input", {
        type: "range",
        min: "0",
        max: "100",
        step: "1",
        value: "50",
        "aria-label": `Divide ${name} between before and after`,
    });
    const show = () => {
        stage.style.setProperty("--split", `${input.value}%`);
        input.setAttribute("aria-valuetext", `${input.value} % before, ${100 - input.value} % after`);
    };
    input.addEventListener("input", show);
    follow(stage, input, show);
    show();
    return input;
}

// The pictures are addresses: before, repaired and after, of which the last two may be null. Marks are places that are framed,
// each with its number; size is that of the picture, in pixels.
export function comparison({name, before, repaired, after, size, marks}) {
    const stage = styled(html("div", {class: "compare"}), {
        "--aspect": String(clamp(size.width / size.height, 1 / 6, 6)),
        "--most": `${mostEnlarged * Math.max(size.width, 100)}px`,
    });
    const two = Boolean(repaired || after);
    const frames = marks.map(({place, number}) => frameOf(place, number, size));
    if (!two) {
        stage.append(layer("whole", before, `${name}, unchanged`), ...frames);
        return stage;
    }
    const text = `${name}, after`;
    const changed = html(
        "div",
        {class: "after"},
        layer("whole", repaired ?? before, after ? "" : text),
        layer("whole effect", after, text),
    );
    const old = html("div", {class: "before"}, layer("whole", before, `${name}, before`));
    stage.classList.add("two");
    stage.append(changed, old, ...frames);
    stage.append(html("span", {class: "side left", "aria-hidden": "true"}, "Before"));
    stage.append(html("span", {class: "side right", "aria-hidden": "true"}, "After"));
    stage.append(html("div", {class: "divider"}), divider(stage, name));
    return stage;
}

const surroundings = 2.4; // sides of a close-up per side of its place

// A place and what is around it, as a square.
export function closeUp(url, {box: [left, top, right, bottom]}, {width, height}) {
    const side = Math.min(surroundings * Math.max(right - left, bottom - top), width, height);
    const share = (centre, whole) => (whole > side ? clamp((centre - side / 2) / (whole - side), 0, 1) : 0);
    return styled(html("span", {class: "closeup", "aria-hidden": "true"}), {
        "background-image": `url("${url}")`,
        "background-size": `${percent(width / side)} ${percent(height / side)}`,
        "background-position": `${percent(share((left + right) / 2, width))} ${percent(share((top + bottom) / 2, height))}`,
    });
}
