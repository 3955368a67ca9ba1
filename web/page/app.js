// The page as a whole: takes pictures in, keeps the list, reports progress and hands out the results.
import {Darkroom} from "./darkroom.js";
import {Picture} from "./picture.js";
import {grouped, outcome, pictures as countOf} from "./words.js";

const find = (id) => document.getElementById(id);
const page = {
    input: find("files"),
    drop: find("drop"),
    list: find("list"),
    tools: find("tools"),
    format: find("format"),
    summary: find("summary"),
    total: find("total"),
    archive: find("archive"),
    clear: find("clear"),
    status: find("status"),
    problem: find("problem"),
    update: find("update"),
};

const darkroom = new Darkroom();
const pictures = [];

// ---- what the page says

function announce(text) {
    page.status.textContent = text;
}

function showProblem(text) {
    page.problem.textContent = text;
    page.problem.hidden = text === "";
}

const isFinished = ({state, result}) => state === "failed" || result !== null;

function showSummary() {
    const finished = pictures.filter(isFinished).length;
    const done = finished === pictures.length;
    const failed = pictures.filter(({state}) => state === "failed").length;
    page.tools.hidden = pictures.length === 0;
    document.body.classList.toggle("working", !done);
    document.body.classList.toggle("filled", pictures.length > 0);
    page.summary.textContent = done
        ? `${countOf(pictures.length)} finished${failed > 0 ? `, ${grouped(failed)} not improved` : ""}`
        : `${grouped(finished)} of ${countOf(pictures.length)} finished`;
    page.total.hidden = done;
    page.total.max = pictures.length;
    page.total.value = finished;
    page.archive.disabled = !pictures.some(({result, state}) => result && state !== "failed");
}

// ---- taking pictures in

const events = {
    changed(picture) {
        const text = picture.state === "failed" ? picture.error : `${outcome(picture.result, picture.skipped).join(", ")}.`;
        const finished = pictures.filter(isFinished).length;
        showSummary();
        announce(`${picture.name}: ${text} ${finished} of ${countOf(pictures.length)} finished.`);
    },
    removed(picture) {
        const place = pictures.indexOf(picture);
        pictures.splice(place, 1);
        showSummary();
        announce(`${picture.name} removed.`);
        (pictures[Math.min(place, pictures.length - 1)]?.heading ?? page.input).focus();
    },
    async wanted(picture, button) {
        await busy(button, "Writing the file…", async () => save(await picture.download(page.format.value)));
    },
};

function add(files) {
    const added = Array.from(files, (file) => new Picture(file, darkroom, events));
    if (added.length === 0) {
        return;
    }
    showProblem("");
    pictures.push(...added);
    page.list.append(...added.map(({element}) => element));
    showSummary();
    announce(`${countOf(added.length)} added.`);
    added.forEach((picture) => picture.process());
}

page.input.addEventListener("change", () => {
    add([...page.input.files]);
    page.input.value = "";
});

const hasFiles = (event) => event.dataTransfer?.types.includes("Files");

addEventListener("dragover", (event) => {
    if (hasFiles(event)) {
        event.preventDefault();
        page.drop.classList.add("over");
    }
});
addEventListener("dragleave", (event) => {
    if (event.relatedTarget === null) {
        page.drop.classList.remove("over");
    }
});
addEventListener("drop", (event) => {
    if (hasFiles(event)) {
        event.preventDefault();
        page.drop.classList.remove("over");
        add(event.dataTransfer.files);
    }
});
addEventListener("paste", (event) => add(event.clipboardData?.files ?? []));

// ---- handing results out

function save({name, blob}) {
    const link = document.createElement("a");
    link.href = URL.createObjectURL(blob);
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
    announce(`${name} is ready.`);
}

// Runs what a button stands for. The button stays focusable meanwhile, so that the keyboard does not lose its place.
async function busy(button, text, work) {
    if (button.getAttribute("aria-disabled") === "true") {
        return;
    }
    const label = button.textContent;
    button.setAttribute("aria-disabled", "true");
    button.textContent = text;
    showProblem("");
    try {
        await work();
    } catch (error) {
        if (error.name !== "AbortError") {
            showProblem(error.message);
        }
    } finally {
        button.removeAttribute("aria-disabled");
        button.textContent = label;
    }
}

page.archive.addEventListener("click", () =>
    busy(page.archive, "Writing the archive…", async () => {
        const files = [];
        for (const picture of pictures.filter(({result, state}) => result && state !== "failed")) {
            page.archive.textContent = `Writing ${files.length + 1} of ${pictures.length}…`;
            files.push(await picture.download(page.format.value, {urgent: false}));
        }
        save({name: "ko-pictures.zip", blob: await darkroom.run("zip", {files})});
    }),
);

page.clear.addEventListener("click", () => {
    [...pictures].forEach((picture) => picture.remove());
    announce("All pictures removed.");
});

// ---- offline use

// A new version waits until somebody asks for it, in this window or in another one: loading it costs the pictures of a window.
function offer(accept) {
    page.update.hidden = false;
    page.update.querySelector("button").onclick = accept;
}

async function register() {
    const registration = await navigator.serviceWorker.register("./service-worker.js", {updateViaCache: "none"});
    const controlled = navigator.serviceWorker.controller !== null;
    let asked = false;
    const activate = () => {
        asked = true;
        registration.waiting?.postMessage("activate");
    };
    if (registration.waiting && controlled) {
        offer(activate);
    }
    registration.addEventListener("updatefound", () => {
        const {installing} = registration;
        installing.addEventListener("statechange", () => {
            if (installing.state === "installed" && navigator.serviceWorker.controller) {
                offer(activate);
            }
        });
    });
    navigator.serviceWorker.addEventListener("controllerchange", () => {
        if (asked) {
            location.reload();
        } else if (controlled) {
            offer(() => location.reload());
        }
    });
}

if ("serviceWorker" in navigator) {
    register().catch(() => {}); // without it, as in a private window, the page works online
}

darkroom.run("version").then(
    (version) => {
        find("version").textContent = `ko ${version}`;
    },
    (error) => showProblem(error.message),
);
