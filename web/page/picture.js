// One picture of the list: its file, its settings, its results, and the card that shows them.
import {closeUp, comparison} from "./compare.js";
import {curveGrid} from "./curves.js";
import {html} from "./elements.js";
import {explanation, grouped, measureRows, notes, outcome, redEyes, stages} from "./words.js";

const endings = {"image/jpeg": ".jpg", "image/png": ".png"};

const settingsOf = (type, strength) => `${type} ${strength}`;

let count = 0;

export class Picture {
    #darkroom;
    #events;
    #control = new AbortController();
    #urls = [];
    #file = null; // the result as a file, with the settings it was made for
    #curves = null;
    #runs = 0;
    #nodes = {};

    // Events: changed(picture), removed(picture), wanted(picture, button) for a download.
    constructor(file, darkroom, events) {
        this.file = file;
        this.name = file.name || "Pasted picture.png";
        this.key = ++count;
        this.result = null;
        this.state = "waiting";
        this.strength = 1;
        this.skipped = new Set();
        this.forced = false;
        this.#darkroom = darkroom;
        this.#events = events;
        this.element = this.#build();
    }

    get heading() {
        return this.#nodes.heading;
    }

    // ---- work

    // Results of settings that were changed meanwhile are dropped.
    async process(urgent = false) {
        const run = ++this.#runs;
        this.state = "working";
        this.#file = null;
        this.#show();
        let result;
        try {
            const options = {signal: this.#control.signal, urgent, report: (stage, fraction) => this.#report(stage, fraction)};
            result = await this.#darkroom.run("process", this.#job(), options);
        } catch (error) {
            this.error = error.message;
        }
        if (run !== this.#runs || this.#control.signal.aborted) {
            return;
        }
        this.state = result ? "done" : "failed";
        if (result) {
            this.result = result;
            this.#file = result.file && {settings: settingsOf(result.type, 1), blob: result.file};
        }
        this.#showResult();
        this.#events.changed(this);
    }

    #job() {
        const skip = [...this.skipped].sort((one, other) => one - other);
        return {key: this.key, file: this.file, skip, policy: this.forced ? "always" : "default"};
    }

    #report(stage, fraction) {
        this.#nodes.stage.textContent = stages[stage] ?? "";
        this.#nodes.progress.value = fraction;
    }

    get changes() {
        return Boolean(this.result?.repaired || (this.result?.after && this.strength > 0));
    }

    // The file for the person: {name, blob}. A picture to which nothing was done is the original, byte for byte.
    async download(wish, {urgent = true, report} = {}) {
        const type = wish === "original" ? this.result.type : wish;
        if (!this.changes && (wish === "original" || this.file.type === type)) {
            return {name: this.name, blob: this.file};
        }
        const settings = settingsOf(type, this.strength);
        if (this.#file?.settings !== settings) {
            const job = {...this.#job(), type, strength: this.strength};
            const blob = await this.#darkroom.run("render", job, {signal: this.#control.signal, urgent, report});
            this.#file = {settings, blob};
        }
        const dot = this.name.lastIndexOf(".");
        return {name: `${dot > 0 ? this.name.slice(0, dot) : this.name}-ko${endings[type]}`, blob: this.#file.blob};
    }

    remove() {
        this.#control.abort();
        this.#darkroom.run("forget", {key: this.key});
        this.#release();
        this.element.remove();
        this.#events.removed(this);
    }

    #release() {
        this.#urls.forEach((url) => URL.revokeObjectURL(url));
        this.#urls = [];
    }

    #url(blob) {
        if (!blob) {
            return null;
        }
        const url = URL.createObjectURL(blob);
        this.#urls.push(url);
        return url;
    }

    // ---- the card

    #build() {
        const id = `picture-${this.key}`;
        const heading = html("h2", {id, tabindex: "-1"}, this.name);
        const remove = html(
            "button",
            {type: "button", class: "quiet remove", "aria-label": `Remove ${this.name}`, onclick: () => this.remove()},
            "Remove",
        );
        const stage = html("span", {class: "stage"}, "Waiting");
        const progress = html("progress", {max: "1", value: "0", "aria-label": `Progress of ${this.name}`});
        const working = html("div", {class: "working"}, stage, progress);
        const body = html("div", {class: "body"});
        const badges = html("p", {class: "badges"});
        const facts = html("p", {class: "facts"});
        this.#nodes = {heading, stage, progress, working, body, badges, facts};
        const head = html("div", {class: "head"}, heading, facts, badges, remove);
        return html("article", {class: "picture", "aria-labelledby": id}, head, working, body);
    }

    #show() {
        const busy = this.state === "working" || this.state === "waiting";
        this.#nodes.working.hidden = !busy;
        this.element.setAttribute("aria-busy", String(busy));
    }

    #showBadges(texts, kind) {
        this.#nodes.badges.replaceChildren(...texts.map((text) => html("span", {class: `badge ${kind}`}, text)));
    }

    #showResult() {
        this.#show();
        if (this.state === "failed") {
            this.#showBadges(["Not improved"], "bad");
            this.#nodes.body.replaceChildren(html("p", {class: "error"}, this.error));
            return;
        }
        const {result} = this;
        this.#showBadges(outcome(result, this.skipped), result.repaired || result.after ? "good" : "plain");
        const megapixels = (result.width * result.height) / 1e6;
        const size = `${grouped(result.width)} × ${grouped(result.height)}`;
        const large = megapixels >= 1 ? `, ${megapixels.toFixed(1)} megapixels` : "";
        this.#nodes.facts.textContent = `${result.kind}, ${size}${large}`;
        this.#showPictures();
    }

    #showPictures() {
        const focused = this.#nodes.body.contains(document.activeElement) ? document.activeElement.dataset.control : null;
        const open = this.#nodes.body.querySelector("details")?.open ?? false;
        const split = this.#nodes.body.querySelector(".compare input")?.value;
        this.#release();
        const {result} = this;
        const urls = {before: this.#url(result.before), repaired: this.#url(result.repaired), after: this.#url(result.after)};
        const marks = redEyes(result).map(({place}, index) => ({place, number: index + 1}));
        const stage = comparison({name: this.name, ...urls, size: result, marks});
        const panel = html(
            "div",
            {class: "panel"},
            this.#decision(),
            this.#strength(),
            this.#eyes(urls),
            this.#download(),
            this.#notes(),
            this.#tones(urls),
        );
        this.#nodes.body.replaceChildren(html("div", {class: "top"}, stage, panel), ...this.#measures(open));
        this.#restore(focused, split);
        this.#applyStrength();
    }

    // A new result replaces the elements; focus and divider stay where they were.
    #restore(focused, split) {
        if (focused) {
            const again = this.#nodes.body.querySelector(`[data-control="${focused}"]`) ?? this.#nodes.heading;
            again.focus({preventScroll: true});
        }
        const divider = this.#nodes.body.querySelector(".compare input");
        if (divider && split !== undefined) {
            divider.value = split;
            divider.dispatchEvent(new Event("input"));
        }
    }

    #decision() {
        const text =
            this.forced && this.result.after ? "The shadows are opened because you asked for it." : explanation(this.result);
        if (!text) {
            return null;
        }
        const canForce = this.forced || this.result.decision === "left";
        const label = this.forced ? "Leave the shadows as they were" : "Enhance nevertheless";
        const force = () => {
            this.forced = !this.forced;
            this.#again();
        };
        const button = html("button", {type: "button", "data-control": "force", onclick: force}, label);
        return html("div", {class: "decision"}, html("p", {}, text), canForce ? button : null);
    }

    #strength() {
        if (!this.result.after) {
            return null;
        }
        const id = `strength-${this.key}`;
        const value = String(Math.round(this.strength * 100));
        const input = html("input", {type: "range", id, min: "0", max: "100", step: "5", value, "data-control": "strength"});
        const output = html("output", {for: id});
        input.addEventListener("input", () => {
            this.strength = Number(input.value) / 100;
            this.#applyStrength();
        });
        this.#nodes.strength = {input, output};
        return html("div", {class: "strength"}, html("label", {for: id}, "Strength"), output, input);
    }

    #applyStrength() {
        if (!this.result.after) {
            return;
        }
        const text = `${Math.round(this.strength * 100)} %`;
        this.#nodes.strength.output.textContent = text;
        this.#nodes.strength.input.setAttribute("aria-valuetext", text);
        this.#nodes.body.querySelector(".effect").style.setProperty("opacity", String(this.strength));
        this.#curves?.draw(this.strength);
    }

    #eyes(urls) {
        const eyes = redEyes(this.result);
        if (eyes.length === 0) {
            return null;
        }
        const choices = eyes.map(({place, index}, number) => {
            const box = html("input", {type: "checkbox", checked: !this.skipped.has(index), "data-control": `eye-${index}`});
            box.addEventListener("change", () => {
                box.checked ? this.skipped.delete(index) : this.skipped.add(index);
                this.#again();
            });
            const views = [urls.before, urls.repaired ?? urls.before].map((url) => closeUp(url, place, this.result));
            return html("label", {class: "choice"}, box, html("span", {}, `Repair red eye ${number + 1}`), ...views);
        });
        return html("fieldset", {class: "eyes"}, html("legend", {}, "Red eyes"), ...choices);
    }

    // Work again with other settings, ahead of the pictures that wait.
    #again() {
        this.process(true);
    }

    #download() {
        const button = html("button", {type: "button", class: "main", "data-control": "download"}, "Download");
        button.addEventListener("click", () => this.#events.wanted(this, button));
        return button;
    }

    #notes() {
        const lines = notes(this.result);
        return lines.length > 0 ? html("div", {class: "notes"}, ...lines.map((line) => html("p", {}, line))) : null;
    }

    #tones(urls) {
        const {result} = this;
        this.#curves = result.curves ? curveGrid(result.curves, urls.repaired ?? urls.before, result, this.strength) : null;
        if (!this.#curves) {
            return null;
        }
        const hint =
            "One curve for each part of the picture: what becomes of its dark tones, at the left, and its bright ones.";
        return html("section", {}, html("h3", {}, "Tone curves"), this.#curves.element, html("p", {class: "hint"}, hint));
    }

    #measures(open) {
        const rows = measureRows(this.result);
        const table = () => html("div", {class: "inside"}, this.#table(rows));
        return rows.length > 0 ? [html("details", {open}, html("summary", {}, "Measures"), table())] : [];
    }

    #table(rows) {
        const cells = rows.map(({text, value, limit}) =>
            html(
                "tr",
                {class: value > limit ? "past" : ""},
                html("th", {scope: "row"}, text),
                html("td", {}, grouped(value)),
                html("td", {}, grouped(limit)),
            ),
        );
        const head = html("tr", {}, ...["Of 64 blocks", "Here", "At most"].map((text) => html("th", {scope: "col"}, text)));
        return html("table", {}, html("thead", {}, head), html("tbody", {}, ...cells));
    }
}
