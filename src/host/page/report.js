// The script of the page of a run. It builds what is under a picture's row when the row is opened and drops it when the row is
// closed, so that a page of many pictures holds few of them decoded. All texts are inserted as text, never as markup.
"use strict";

(() => {
    // The name of the space is an address; the parser knows it, so that the page itself names none.
    const svgSpace = new DOMParser().parseFromString("<svg></svg>", "text/html").body.firstChild.namespaceURI;

    // ---- building blocks

    function add(parent, children) {
        for (const child of children) {
            if (child !== null && child !== undefined) {
                parent.append(child);
            }
        }
        return parent;
    }

    function setAll(element, attributes) {
        for (const [name, value] of Object.entries(attributes)) {
            element.setAttribute(name, value);
        }
        return element;
    }

    const html = (name, attributes = {}, ...children) =>
        add(setAll(document.createElement(name), attributes), children);
    const svg = (name, attributes = {}, ...children) =>
        add(setAll(document.createElementNS(svgSpace, name), attributes), children);

    // Styles that depend on data go in by properties: the page's policy admits no style attributes.
    function styled(element, properties) {
        for (const [name, value] of Object.entries(properties)) {
            element.style.setProperty(name, value);
        }
        return element;
    }

    // The shape of a picture; a strip is shown less slim than it is.
    const aspect = (data, most) => String(clamp(data.width / data.height, 1 / most, most));

    const clamp = (value, low, high) => Math.min(Math.max(value, low), high);

    // ---- before and after

    const placeNames = {accepted: "accepted", undecided: "undecided", rejected: "rejected", "not judged": "unjudged"};
    const percent = (share) => (share * 100).toFixed(3) + "%";

    // Words where they do not hide the picture.
    const fewPlaces = 12;

    function placeBox(place, index, all) {
        const [left, top, right, bottom] = place.box;
        const sure = place.score === undefined ? "" : " " + Math.round(place.score * 100) + " %";
        const text = index + 1 + (all.length > fewPlaces ? "" : " " + place.label + sure);
        const box = html("div", {class: "place " + placeNames[place.label]}, html("span", {}, text));
        box.classList.toggle("low", top < 0.06);
        box.classList.toggle("far", right > 0.8);
        return styled(box, {
            left: percent(left),
            top: percent(top),
            width: percent(right - left),
            height: percent(bottom - top),
        });
    }

    function slider(stage) {
        const input = html("input", {type: "range", min: "0", max: "100", step: "1", value: "50"});
        input.setAttribute("aria-label", "Divide between the picture before, on the left, and after, on the right");
        const show = () => {
            stage.style.setProperty("--split", input.value + "%");
            input.setAttribute("aria-valuetext", input.value + " % of the picture before");
        };
        const follow = (event) => {
            const frame = stage.getBoundingClientRect();
            input.value = String(Math.round(clamp((event.clientX - frame.left) / frame.width, 0, 1) * 100));
            show();
        };
        stage.addEventListener("pointerdown", (event) => {
            if (event.button === 0) {
                stage.setPointerCapture(event.pointerId);
                input.focus({preventScroll: true});
                follow(event);
            }
        });
        stage.addEventListener("pointermove", (event) => {
            if (stage.hasPointerCapture(event.pointerId)) {
                follow(event);
            }
        });
        input.addEventListener("input", show);
        show();
        return input;
    }

    function comparison(data) {
        const stage = styled(html("div", {class: "compare"}), {"--aspect": aspect(data, 12)});
        const picture = (source, text) => html("img", {src: source, alt: text, draggable: "false", decoding: "async"});
        const before = html("div", {class: "layer"}, picture(data.before, data.after ? "Before" : "The picture"));
        add(before, (data.places || []).map(placeBox));
        if (!data.after) {
            return add(stage, [before]);
        }
        stage.classList.add("two");
        add(stage, [picture(data.after, "After"), html("span", {class: "side right"}, "After")]);
        before.append(html("span", {class: "side left"}, "Before"));
        return add(stage, [before, html("div", {class: "divider"}), slider(stage)]);
    }

    // ---- facts

    const seconds = (time) => time.toFixed(time < 0.1 ? 3 : 2) + " s";
    const stageNames = ["reading", "red eyes", "judging", "curves", "applying", "writing"];

    function times(data) {
        const bar = html("div", {class: "stages", "aria-hidden": "true"});
        const list = html("ul", {class: "times"});
        for (const [stage, time] of data.timings) {
            const colour = "stage-" + (stageNames.indexOf(stage) + 1);
            bar.append(styled(html("span", {class: colour}), {"flex-grow": String(time / data.seconds)}));
            list.append(html("li", {}, html("span", {class: "dot " + colour}), html("span", {}, stage),
                             html("span", {}, seconds(time))));
        }
        return html("dd", {}, bar, list);
    }

    function facts(data) {
        const list = html("dl", {class: "facts"});
        const fact = (name, value) => list.append(html("div", {}, html("dt", {}, name), value));
        if (data.output) {
            fact("Written to", html("dd", {}, html("bdi", {}, data.output)));
        }
        if (data.verdict) {
            fact("Judgement", html("dd", {}, data.verdict));
        }
        for (const notice of data.notices) {
            fact("Notice", html("dd", {}, notice));
        }
        fact("Time: " + seconds(data.seconds), times(data));
        return list;
    }

    const decimal = (score) => (score === null || score === undefined ? "\u2013" : score.toFixed(3));

    function placeRow(place, index) {
        const scores = [place.score, ...(place.scores || [null, null])];
        return html("tr", {}, html("td", {}, String(index + 1)),
                    html("td", {}, html("span", {class: "swatch " + placeNames[place.label]}), place.label),
                    ...scores.map((score) => html("td", {}, decimal(score))));
    }

    function places(data) {
        const heads = ["Place", "Label", "Score", "Model's first", "Model's second"];
        const table = html("table", {class: "places"},
                           html("thead", {}, html("tr", {}, ...heads.map((text) => html("th", {scope: "col"}, text)))),
                           html("tbody", {}, ...data.places.map(placeRow)));
        const plain = data.places.every((place) => place.score === undefined);
        return html("section", {}, html("h3", {}, "Red-eye places"),
                    html("p", {class: "hint"}, "The boxes in the picture before carry these numbers. " + (plain ?
                         "Accepted places are repaired, undecided ones in part. Places without scores were not shown to the model." :
                         "Accepted places are repaired; the label follows from the score.")),
                    html("div", {class: "frame", tabindex: "0", role: "group", "aria-label": "List of the places"}, table));
    }

    // ---- curves

    const levels = 256;

    function unpacked(curves) {
        const bytes = Uint8Array.from(atob(curves.points), (character) => character.charCodeAt(0));
        const across = Math.ceil(curves.columns / curves.across);
        const tiles = [];
        for (let start = 0; start < bytes.length; start += levels) {
            tiles.push(bytes.subarray(start, start + levels));
        }
        return {tiles, across, down: tiles.length / across};
    }

    // As SVG paths; the level upwards.
    function line(points, place) {
        return Array.from(points, (level, input) => (input === 0 ? "M" : "L") + place(input, level)).join("");
    }

    const inTile = (input, level) => input + " " + (255 - level);

    function tileName(curves, column, row) {
        return "Column " + (column * curves.across + 1) + ", row " + (row * curves.down + 1);
    }

    function described(points) {
        let most = 0;
        for (let input = 0; input < levels; ++input) {
            if (Math.abs(points[input] - input) > Math.abs(points[most] - most)) {
                most = input;
            }
        }
        const change = points[most] - most;
        if (change === 0) {
            return "no level changes";
        }
        return "input level " + most + " becomes " + points[most] + ", the greatest " + (change > 0 ? "lift" : "drop") +
            " (" + Math.abs(change) + ")";
    }

    const margin = {left: 44, top: 8, right: 12, bottom: 42};
    const side = 272;
    const inPlot = (input, level) => (margin.left + input / 255 * side).toFixed(1) + " " +
        (margin.top + (255 - level) / 255 * side).toFixed(1);

    // The least and the greatest level of all tiles at each input level, as one shape.
    function band(tiles) {
        const extreme = (pick) => Array.from({length: levels}, (_, input) => pick(...tiles.map((points) => points[input])));
        const low = extreme(Math.min);
        const high = extreme(Math.max);
        const back = low.map((level, input) => "L" + inPlot(input, level)).reverse().join("");
        return line(high, inPlot) + back + "Z";
    }

    function axes() {
        const group = svg("g", {"aria-hidden": "true"});
        for (const level of [0, 64, 128, 192, 255]) {
            const x = margin.left + level / 255 * side;
            const y = margin.top + (255 - level) / 255 * side;
            add(group, [
                svg("line", {class: "mesh", x1: x, x2: x, y1: margin.top, y2: margin.top + side}),
                svg("line", {class: "mesh", x1: margin.left, x2: margin.left + side, y1: y, y2: y}),
                svg("text", {x, y: margin.top + side + 16, "text-anchor": "middle"}, String(level)),
                svg("text", {x: margin.left - 7, y: y + 4, "text-anchor": "end"}, String(level)),
            ]);
        }
        const middle = margin.top + side / 2;
        return add(group, [
            svg("text", {class: "axis", x: margin.left + side / 2, y: margin.top + side + 36, "text-anchor": "middle"},
                "Input level"),
            svg("text", {class: "axis", x: 12, y: middle, "text-anchor": "middle", transform: `rotate(-90 12 ${middle})`},
                "Output level"),
        ]);
    }

    function key(name, shape, text) {
        return html("li", {}, svg("svg", {viewBox: "0 0 22 10", "aria-hidden": "true"}, svg("path", {class: name, d: shape})), text);
    }

    // The large drawing of one curve. Gives its element, and a function that shows another tile.
    function plot(tiles) {
        const curve = svg("path", {class: "curve"});
        const width = margin.left + side + margin.right;
        const height = margin.top + side + margin.bottom;
        const drawing = svg("svg", {viewBox: `0 0 ${width} ${height}`, role: "img"}, axes(),
                            svg("path", {class: "band", d: band(tiles)}),
                            svg("path", {class: "identity", d: line([...Array(levels).keys()], inPlot)}), curve);
        const caption = html("p", {"aria-live": "polite"});
        const keys = html("ul", {class: "keys"}, key("curve", "M0 5H22", "this tile"), key("band", "M0 0H22V10H0Z", "range of all tiles"),
                          key("identity", "M0 5H22", "no change"));
        const show = (points, name) => {
            curve.setAttribute("d", line(points, inPlot));
            drawing.setAttribute("aria-label", "Tone curve of a tile. " + name + ": " + described(points));
            caption.replaceChildren(html("b", {}, name), ": " + described(points) + ".");
        };
        return [html("div", {class: "plot"}, caption, drawing, keys), show];
    }

    function tileButton(points, name) {
        const drawing = svg("svg", {viewBox: "0 0 255 255", preserveAspectRatio: "none", "aria-hidden": "true"},
                            svg("path", {class: "change", d: line(points, inTile) + "L0 255Z"}),
                            svg("path", {class: "identity", d: "M0 255L255 0"}), svg("path", {d: line(points, inTile)}));
        return html("button", {type: "button", role: "gridcell", tabindex: "-1", "aria-selected": "false", "aria-label": name},
                    drawing);
    }

    // Where a key leads in a grid of tiles, or null.
    function moved(event, index, across, count) {
        const row = Math.floor(index / across);
        const targets = {
            ArrowLeft: index % across > 0 ? index - 1 : index,
            ArrowRight: index % across < across - 1 ? index + 1 : index,
            ArrowUp: row > 0 ? index - across : index,
            ArrowDown: index + across < count ? index + across : index,
            Home: event.ctrlKey ? 0 : row * across,
            End: event.ctrlKey ? count - 1 : (row + 1) * across - 1,
        };
        return event.key in targets ? targets[event.key] : null;
    }

    // The grid of all curves, of which one is selected by pointer or keys.
    function tileGrid(data, grid, select) {
        const element = html("div", {class: "tiles", role: "grid", "aria-label": "Tone curves of the tiles"});
        styled(element, {
            "--aspect": aspect(data, 2.4),
            "grid-template-columns": `repeat(${grid.across}, minmax(0, 1fr))`,
            "grid-template-rows": `repeat(${grid.down}, minmax(0, 1fr))`,
        });
        element.append(html("img", {src: data.before, alt: "", draggable: "false", decoding: "async"}));
        const buttons = grid.tiles.map((points, index) =>
            tileButton(points, tileName(data.curves, index % grid.across, Math.floor(index / grid.across))));
        for (let row = 0; row < grid.down; ++row) {
            element.append(html("div", {role: "row"}, ...buttons.slice(row * grid.across, (row + 1) * grid.across)));
        }
        let selected = 0;
        const choose = (index) => {
            setAll(buttons[selected], {"aria-selected": "false", tabindex: "-1"});
            selected = index;
            setAll(buttons[index], {"aria-selected": "true", tabindex: "0"});
            select(grid.tiles[index], buttons[index].getAttribute("aria-label"));
        };
        element.addEventListener("click", (event) => {
            const index = buttons.indexOf(event.target.closest("button"));
            if (index >= 0) {
                choose(index);
            }
        });
        element.addEventListener("keydown", (event) => {
            const index = moved(event, selected, grid.across, buttons.length);
            if (index !== null) {
                event.preventDefault();
                choose(index);
                buttons[index].focus();
            }
        });
        choose(strongest(grid.tiles));
        return element;
    }

    // The tile whose curve is farthest from the identity.
    function strongest(tiles) {
        const change = (points) => points.reduce((sum, level, input) => sum + Math.abs(level - input), 0);
        const changes = tiles.map(change);
        return changes.indexOf(Math.max(...changes));
    }

    function curves(data) {
        const grid = unpacked(data.curves);
        const [drawing, show] = plot(grid.tiles);
        const {columns, rows, across, down} = data.curves;
        const part = across > 1 || down > 1 ? `, of which every ${across} across and ${down} down is shown` : "";
        return html("section", {}, html("h3", {}, "Tone curves"),
                    html("p", {class: "hint"}, `A grid of ${columns} by ${rows} tiles over the picture${part}. ` +
                         "Choose a tile by pointer or arrow keys to see its curve large."),
                    html("div", {class: "curves"}, tileGrid(data, grid, show), drawing));
    }

    // ---- measures

    const decimals = 2;

    function scaleOf(measure) {
        const known = measure.scores.filter((score) => score !== null);
        const low = Math.min(...known, measure.threshold);
        const high = Math.max(...known, measure.threshold);
        const past = (score) => (measure.low ? score < measure.threshold : score > measure.threshold);
        const share = (score) => {
            const end = score < measure.threshold ? low : high;
            return end === measure.threshold ? 0 : (score - measure.threshold) / (end - measure.threshold);
        };
        return {low, high, past, share};
    }

    function block(measure, scale, score) {
        if (score === null) {
            return html("td", {class: "none"}, "\u2013");
        }
        const share = scale.share(score);
        const cell = html("td", {}, score.toFixed(decimals));
        if (scale.past(score)) {
            cell.classList.add("past");
            cell.append(html("span", {class: "aside"}, " counts"));
        }
        return styled(cell, {"--share": Math.round(12 + 88 * share) + "%"});
    }

    function legend(measure, scale) {
        const at = scale.high > scale.low ? (measure.threshold - scale.low) / (scale.high - scale.low) : 0;
        const shown = (value) => value.toFixed(decimals);
        const anchor = at < 0.15 ? "start" : at > 0.85 ? "end" : "middle";
        const element = html("div", {class: "scale", "aria-hidden": "true"}, html("i"),
                             html("span", {class: "mark " + anchor}, (measure.low ? "under " : "over ") + shown(measure.threshold)));
        if (at > 0.3) {
            element.append(html("span", {class: "low"}, shown(scale.low)));
        }
        if (at < 0.7) {
            element.append(html("span", {class: "high"}, shown(scale.high)));
        }
        return styled(element, {
            "--threshold": percent(at),
            "--start": measure.low ? "var(--heat-past)" : "var(--heat-fine)",
            "--end": measure.low ? "var(--heat-fine)" : "var(--heat-past)",
        });
    }

    function heatMap(measure) {
        const scale = scaleOf(measure);
        const blocks = 8;
        const body = html("tbody");
        for (let row = 0; row < blocks; ++row) {
            const scores = measure.scores.slice(row * blocks, (row + 1) * blocks);
            body.append(html("tr", {}, ...scores.map((score) => block(measure, scale, score))));
        }
        const caption = html("caption", {}, html("b", {}, measure.name), html("span", {}, measure.count));
        return html("div", {}, html("table", {class: "heat"}, caption, body), legend(measure, scale));
    }

    function measures(data) {
        const without = data.measures.length < 3 ? " Colour noise is not measured in a gray picture." : "";
        return html("section", {}, html("h3", {}, "Measures"),
                    html("p", {class: "hint"}, "The picture is judged by 8 by 8 blocks, shown as they lie in it. A marked corner and " +
                         "orange mean that a block counts against the picture; the scale shows from which value on." + without),
                    html("div", {class: "measures"}, ...data.measures.map(heatMap)));
    }

    // ---- rows

    function bodyOf(entry) {
        const data = JSON.parse(entry.querySelector("script").textContent);
        const top = html("div", {class: data.before ? "top" : ""}, data.before ? comparison(data) : null, facts(data));
        return html("div", {class: "body"}, top, data.places && data.places.length > 0 ? places(data) : null,
                    data.curves ? curves(data) : null, data.measures ? measures(data) : null);
    }

    function update(entry) {
        const body = entry.querySelector(".body");
        if (entry.open && !body) {
            entry.append(bodyOf(entry));
        } else if (!entry.open && body) {
            body.remove();
        }
    }

    // ---- the choice of rows

    function filter(entries, outcomes) {
        let wanted = "";
        const texts = entries.map((entry) => ({
            entry,
            name: entry.querySelector(".name").textContent.toLowerCase(),
            outcomes: Array.from(entry.querySelectorAll(".outcome"), (outcome) => outcome.textContent),
        }));
        const search = html("input", {type: "search", placeholder: "Name", "aria-label": "Show pictures with this in their name"});
        const count = html("output", {"aria-live": "polite"});
        const apply = () => {
            const part = search.value.toLowerCase();
            let shown = 0;
            for (const {entry, name, outcomes: present} of texts) {
                entry.hidden = !name.includes(part) || (wanted !== "" && !present.includes(wanted));
                shown += entry.hidden ? 0 : 1;
            }
            count.textContent = shown === texts.length ? "" : `${shown} of ${texts.length}`;
        };
        const buttons = ["", ...outcomes].map((outcome) => {
            const button = html("button", {type: "button", "aria-pressed": String(outcome === "")}, outcome || "all");
            button.addEventListener("click", () => {
                wanted = outcome;
                buttons.forEach((other) => other.setAttribute("aria-pressed", String(other === button)));
                apply();
            });
            return button;
        });
        search.addEventListener("input", apply);
        return html("div", {class: "filter", role: "group", "aria-label": "Which pictures are shown"}, ...buttons, search, count);
    }

    const entries = Array.from(document.querySelectorAll(".entry"));
    document.addEventListener("toggle", (event) => event.target.matches(".entry") && update(event.target), true);
    const first = entries.find((entry) => !entry.querySelector(".outcome.failed"));
    if (first) {
        first.open = true;
    }
    if (entries.length > 1) {
        const outcomes = Array.from(document.querySelectorAll(".summary .outcome"), (outcome) => outcome.textContent);
        entries[0].before(filter(entries, outcomes));
    }
})();
