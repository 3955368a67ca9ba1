// The page as a person uses it. By default with a stand-in for the package; browser.mjs names the variables for the real one.
import assert from "node:assert/strict";
import {execFileSync} from "node:child_process";
import {createRequire} from "node:module";
import {cpSync, readFileSync, writeFileSync} from "node:fs";
import {join} from "node:path";
import {after, before, test} from "node:test";
import {launch, makeSite, patience} from "./browser.mjs";
import {describeFile, makeFolder, makePictures, read, samples, sha256} from "./support.mjs";

const rocket = join(samples, "rocket.jpg");
const face = join(samples, "face.jpg");
const axe = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");

let folder;
let site;
let browser;
before(async () => {
    folder = makePictures();
    site = makeSite();
    browser = await launch(site);
});
after(async () => {
    const requests = await browser.close();
    assert.ok(requests.length > 10, "the record of requests is not empty");
    assert.deepEqual(
        requests.filter((url) => !url.startsWith(browser.address) && !url.startsWith("blob:")),
        [],
    );
});

const picture = (name) => join(folder, name);

// A test with a page of its own, which must not have complained.
function visit(name, options, work) {
    test(name, {timeout: 3 * patience}, async () => {
        const page = await browser.open(options);
        await work(page);
        await page.close();
    });
}

// ---- taking pictures in

visit("the start says what to do, and nothing else is offered", {}, async (page) => {
    assert.equal(await page.text("h1"), "ko");
    assert.match(await page.text("#drop"), /Choose pictures\s+or drop them here/);
    assert.equal(await page.page.$eval("#tools", (tools) => tools.hidden), true);
    await page.page.keyboard.press("Tab");
    assert.equal(await page.page.evaluate(() => document.activeElement.id), "files");
});

// Hands files to the page in an event, as a drop or the clipboard does.
function hand(page, type, ...paths) {
    const files = paths.map((path) => ({
        name: path.split("/").pop(),
        text: Buffer.from(readFileSync(path)).toString("base64"),
    }));
    return page.page.evaluate(
        (kind, given) => {
            const transfer = new DataTransfer();
            for (const {name, text} of given) {
                transfer.items.add(new File([Uint8Array.from(atob(text), (letter) => letter.charCodeAt(0))], name));
            }
            const event =
                kind === "paste"
                    ? new ClipboardEvent("paste", {clipboardData: transfer, bubbles: true})
                    : new DragEvent(kind, {dataTransfer: transfer, bubbles: true, cancelable: true});
            document.body.dispatchEvent(event);
            return event.defaultPrevented;
        },
        type,
        files,
    );
}

visit("pictures are dropped and pasted", {}, async (page) => {
    assert.equal(await hand(page, "dragover", rocket), true);
    assert.equal(await hand(page, "drop", rocket, picture("bright.png")), true);
    await page.waitForCards(2);
    await hand(page, "paste", face);
    await page.waitForCards(3);
    await page.finished();
    assert.deepEqual(await page.texts("h2:not(#about h2)"), ["rocket.jpg", "bright.png", "face.jpg"]);
    assert.deepEqual(await page.texts(".badge"), ["Shadows opened", "Left as it is", "2 red eyes repaired"]);
    assert.equal(await page.text("#summary"), "3 pictures finished");
    assert.match(
        await page.page.$eval("#status", (status) => status.textContent),
        /^face\.jpg: 2 red eyes repaired\. 3 of 3 pictures finished\.$/,
    );
});

visit("pictures are removed, one and all", {}, async (page) => {
    await page.choose(rocket, face);
    await page.click(".picture .remove");
    await page.waitForCards(1);
    assert.equal(await page.page.evaluate(() => document.activeElement.textContent), "face.jpg");
    await page.click("#clear");
    await page.waitForCards(0);
    assert.equal(await page.page.evaluate(() => document.activeElement.id), "files");
});

visit("a picture that is removed while it is processed leaves the others alone", {}, async (page) => {
    const input = await page.page.$("#files");
    await input.uploadFile(picture("large.jpg"), rocket);
    await page.waitForCards(2);
    await page.click(".picture .remove");
    await page.waitForCards(1);
    await page.finished();
    assert.deepEqual(await page.texts(".badge"), ["Shadows opened"]);
});

// ---- before and after

const split = (page) => page.page.$eval(".compare", (stage) => parseFloat(stage.style.getPropertyValue("--split")));

visit("the divider follows the keyboard", {}, async (page) => {
    await page.choose(rocket);
    assert.equal(await split(page), 50);
    await page.page.focus(".compare input");
    for (const [key, expected] of [
        ["ArrowRight", 51],
        ["ArrowLeft", 50],
        ["End", 100],
        ["Home", 0],
        ["ArrowUp", 1],
    ]) {
        await page.page.keyboard.press(key);
        assert.equal(await split(page), expected, key);
    }
    assert.equal(
        await page.page.$eval(".compare input", (input) => input.getAttribute("aria-valuetext")),
        "1 % before, 99 % after",
    );
});

visit("the divider follows the mouse, past the edge as well", {}, async (page) => {
    await page.choose(rocket);
    const box = await (await page.page.$(".compare")).boundingBox();
    const {mouse} = page.page;
    await mouse.move(box.x + box.width / 2, box.y + box.height / 2);
    await mouse.down();
    await mouse.move(box.x + box.width / 4, box.y + 20);
    assert.ok(Math.abs((await split(page)) - 25) <= 1);
    await mouse.move(box.x - 30, box.y + 20);
    assert.equal(await split(page), 0);
    await mouse.up();
    await mouse.move(box.x + box.width / 2, box.y + 20);
    assert.equal(await split(page), 0, "the mouse without its button moves nothing");
});

visit("the divider follows a finger", {width: 360, height: 740, phone: true}, async (page) => {
    await page.choose(rocket);
    const stage = await page.page.$(".compare");
    await stage.scrollIntoView();
    const box = await stage.boundingBox();
    await page.page.touchscreen.touchStart(box.x + box.width / 2, box.y + 40);
    await page.page.touchscreen.touchMove(box.x + box.width * 0.8, box.y + 40);
    await page.page.touchscreen.touchEnd();
    assert.ok(Math.abs((await split(page)) - 80) <= 2);
});

// ---- decisions

visit("a picture that is left alone says why, and is enhanced nevertheless", {}, async (page) => {
    await page.choose(picture("bright.png"));
    assert.match(await page.text(".decision p"), /^The shadows were left alone\. It has no detail hidden in its shadows\.$/);
    assert.equal(await page.exists(".compare.two"), false);
    const original = await page.download('[data-control="download"]');
    assert.deepEqual(read(original), read(picture("bright.png")), "what is left alone is the original");
    await page.page.focus('[data-control="force"]');
    await page.page.keyboard.press("Enter");
    await page.page.waitForSelector(".compare.two", {timeout: patience});
    assert.deepEqual(await page.texts(".badge"), ["Shadows opened"]);
    assert.equal(await page.page.evaluate(() => document.activeElement.dataset.control), "force");
    const forced = describeFile(await page.download('[data-control="download"]'));
    assert.ok(forced.mean[1] !== describeFile(picture("bright.png")).mean[1]);
    await page.click('[data-control="force"]');
    await page.page.waitForFunction(() => !document.querySelector(".compare.two"), {timeout: patience});
    assert.deepEqual(await page.texts(".badge"), ["Left as it is"]);
});

const redness = (path, [left, top, right, bottom]) => {
    const code =
        "import sys, numpy as np; from PIL import Image; p = np.asarray(Image.open(sys.argv[1]).convert('RGB')).astype(int);" +
        "l, t, r, b = map(int, sys.argv[2:]); q = p[t:b, l:r]; print((q[..., 0] - q[..., 1]).max())";
    return Number(execFileSync("/usr/bin/python3", ["-c", code, path, left, top, right, bottom].map(String)).toString());
};
const eyes = [
    [117, 91, 134, 107],
    [227, 131, 244, 148],
];

visit("red eyes are marked, repaired, and left alone one by one", {}, async (page) => {
    await page.choose(face);
    assert.deepEqual(await page.texts(".place"), ["1", "2"]);
    const box = await page.page.$eval(".place", (place) => parseFloat(place.style.left));
    assert.ok(Math.abs(box - (117 / 360) * 100) < 1.5, "the mark lies on the eye");
    const before = redness(face, eyes[0]);
    const both = await page.download('[data-control="download"]');
    assert.ok(eyes.every((eye) => redness(both, eye) < before / 2));
    await page.page.focus('[data-control="eye-0"]');
    await page.page.keyboard.press("Space");
    await page.finished();
    await page.page.waitForFunction(() => document.querySelector(".badge").textContent === "1 red eye repaired", {
        timeout: patience,
    });
    assert.equal(await page.page.evaluate(() => document.activeElement.dataset.control), "eye-0");
    const one = await page.download('[data-control="download"]');
    assert.ok(redness(one, eyes[0]) > before * 0.8);
    assert.ok(redness(one, eyes[1]) < before / 2);
    await page.click('[data-control="eye-1"]');
    await page.page.waitForFunction(() => document.querySelector(".badge").textContent === "Left as it is", {
        timeout: patience,
    });
    assert.deepEqual(read(await page.download('[data-control="download"]')), read(face));
});

visit("of settings that change quickly, the last ones count", {}, async (page) => {
    await page.choose(face);
    await page.page.$$eval('.eyes input, [data-control="force"]', (controls) => controls.forEach((control) => control.click()));
    await page.finished();
    await page.page.waitForFunction(() => document.querySelector(".badges").textContent === "Shadows opened", {
        timeout: patience,
    });
    const found = await page.download('[data-control="download"]');
    assert.ok(eyes.every((eye) => redness(found, eye) > redness(face, eye) * 0.6));
});

async function setStrength(page, value) {
    await page.page.$eval(
        '[data-control="strength"]',
        (input, level) => {
            input.value = level;
            input.dispatchEvent(new Event("input", {bubbles: true}));
        },
        String(value),
    );
}

visit("the strength lies between no change and the full one", {}, async (page) => {
    await page.choose(rocket);
    const full = describeFile(await page.download('[data-control="download"]')).mean;
    const path = () => page.page.$eval(".curve", (line) => line.getAttribute("d"));
    const curve = await path();
    await page.page.focus('[data-control="strength"]');
    await page.page.keyboard.press("Home");
    assert.equal(await page.text(".strength output"), "0 %");
    assert.deepEqual(read(await page.download('[data-control="download"]')), read(rocket), "no strength is the original");
    await setStrength(page, 50);
    assert.notEqual(await path(), curve);
    assert.equal(await page.page.$eval(".effect", (layer) => getComputedStyle(layer).opacity), "0.5");
    const half = describeFile(await page.download('[data-control="download"]')).mean;
    const none = describeFile(rocket).mean;
    half.forEach((mean, band) => assert.ok(Math.abs(mean - (none[band] + full[band]) / 2) < 1, `${none} ${half} ${full}`));
    assert.ok(full[2] > none[2] + 5);
});

visit("curves are drawn, 64 of them, above the line of no change", {}, async (page) => {
    await page.choose(rocket);
    assert.equal((await page.page.$$(".tiles .curve")).length, 64);
    assert.match(
        await page.page.$eval(".tiles svg", (drawing) => drawing.getAttribute("aria-label")),
        /^8 by 8 tone curves\. The largest rise is \d+/,
    );
    await page.click("summary");
    assert.equal((await page.page.$$("tbody tr")).length, 3);
});

// ---- files

visit("a download carries the metadata, upright", {}, async (page) => {
    await page.choose(picture("camera.jpg"));
    for (const [format, name] of [
        ["image/jpeg", "JPEG"],
        ["image/png", "PNG"],
    ]) {
        await page.page.select("#format", format);
        const found = describeFile(await page.download('[data-control="download"]'));
        assert.equal(found.format, name);
        assert.deepEqual([found.size, found.orientation, found.make], [[640, 427], 1, "Testcam"]);
        assert.deepEqual([found.exifSize, found.thumbnail], [[640, 427], false]);
        assert.equal(found.profile, sha256(read(folder, "profile.icc")));
        assert.match(found.xmp, /tiff:Orientation="1"/);
    }
});

visit("levels of a picture with a profile are those of the file", {}, async (page) => {
    await page.choose(picture("profiled.png"));
    await page.click('[data-control="force"]');
    await page.page.waitForSelector(".compare.two", {timeout: patience});
    await setStrength(page, 5);
    const found = describeFile(await page.download('[data-control="download"]'));
    const source = describeFile(picture("profiled.png"));
    assert.equal(found.profile, source.profile);
    found.corner.forEach((level, band) =>
        assert.ok(Math.abs(level - source.corner[band]) <= 8, `${found.corner} ${source.corner}`),
    );
});

visit("transparent parts stay transparent in PNG and become white in JPEG", {}, async (page) => {
    await page.choose(picture("transparent.png"));
    const code = "import sys; from PIL import Image; print(*Image.open(sys.argv[1]).convert('RGBA').getpixel((50, 50)))";
    const pixel = (path) => execFileSync("/usr/bin/python3", ["-c", code, path]).toString().trim().split(" ").map(Number);
    assert.equal(pixel(await page.download('[data-control="download"]'))[3], 0);
    await page.page.select("#format", "image/jpeg");
    assert.ok(pixel(await page.download('[data-control="download"]')).every((level) => level > 250));
});

visit("all results come as one archive", {}, async (page) => {
    await page.choose(rocket, picture("bright.png"), picture("text.jpg"), rocket);
    const path = await page.download("#archive");
    assert.match(execFileSync("unzip", ["-t", path]).toString(), /No errors detected/);
    const names = execFileSync("unzip", ["-Z1", path]).toString().trim().split("\n");
    assert.deepEqual(names, ["rocket-ko.jpg", "bright.png", "rocket-ko (2).jpg"]);
});

// ---- what cannot be improved

visit("bad files get one line each, and the page goes on", {}, async (page) => {
    const names = ["truncated.jpg", "truncated.png", "broken.png", "text.jpg", "empty.jpg", "wide.png", "huge.png"];
    await page.choose(...names.map(picture), rocket);
    const lines = await page.texts(".body .error");
    const expected = [
        /incomplete/,
        /incomplete/,
        /damaged/,
        /not a picture/,
        /empty/,
        /too large: 30,000 × 40/,
        /too large: 12,000 × 12,000/,
    ];
    assert.equal(lines.length, expected.length);
    expected.forEach((text, index) => assert.match(lines[index], text));
    assert.ok(lines.every((line) => !line.includes("\n") && line.length < 120));
    assert.equal((await page.texts(".badge")).pop(), "Shadows opened");
    assert.equal(await page.text("#summary"), "8 pictures finished, 7 not improved");
});

// ---- the main thread, offline use, access

// The longest task that is on record after one was made on purpose.
function provoked(page) {
    return page.page.evaluate(async () => {
        const end = performance.now() + 120;
        await new Promise((resolve) =>
            setTimeout(() => {
                while (performance.now() < end + 20) {}
                resolve();
            }),
        );
        await new Promise((resolve) => setTimeout(resolve, 200));
        return Math.max(...window.longTasks);
    });
}

visit("12 megapixels do not block the main thread", {}, async (page) => {
    await page.choose(picture("large.jpg"));
    await setStrength(page, 60);
    const found = describeFile(await page.download('[data-control="download"]'));
    assert.deepEqual(found.size, [4000, 3000]);
    const tasks = await page.page.evaluate(() => [...window.longTasks]);
    assert.ok((await provoked(page)) >= 120, "a long task is noticed");
    console.log(`main-thread tasks of 50 ms and more, with 12 megapixels: ${tasks.map(Math.round).join(", ") || "none"}`);
    assert.ok(
        tasks.every((duration) => duration < 100),
        tasks.join(),
    );
});

// A server of its own, to be switched off, with a copy of the page that can be changed.
async function openOwn(work) {
    const copy = join(makeFolder(), "site");
    cpSync(site, copy, {recursive: true});
    const own = await launch(copy);
    const page = await own.open();
    await page.page.evaluate(() => navigator.serviceWorker.ready);
    await work(page, own, copy);
    await page.close();
    await own.close();
}

test("the page works without a network after the first visit", {timeout: 3 * patience}, () =>
    openOwn(async (page, own) => {
        await own.server.close();
        await page.page.reload();
        await page.page.waitForFunction(() => document.getElementById("version").textContent.startsWith("ko "), {
            timeout: patience,
        });
        await page.choose(rocket, face);
        assert.deepEqual(await page.texts(".badge"), ["Shadows opened", "2 red eyes repaired"]);
    }),
);

// Changes a page that is served, as a new version does.
function release(copy) {
    const change = (name, from, to) => {
        const path = join(copy, name);
        writeFileSync(path, readFileSync(path, "utf8").replace(from, to));
    };
    change("index.html", "Your pictures stay", "All pictures stay");
    change("files.js", /"version": ".*?"/, '"version": "another"');
}

test("a new version is offered, and replaces the old one with all its files", {timeout: 3 * patience}, () =>
    openOwn(async (page, own, copy) => {
        await page.page.reload();
        assert.equal(await page.page.$eval("#update", (notice) => notice.hidden), true);
        release(copy);
        await page.page.evaluate(async () => (await navigator.serviceWorker.getRegistration()).update());
        await page.page.waitForFunction(() => !document.getElementById("update").hidden, {timeout: patience});
        assert.match(await page.text("header p"), /Your pictures stay/);
        await Promise.all([page.page.waitForNavigation({timeout: patience}), page.click("#update button")]);
        assert.match(await page.text("header p"), /All pictures stay/);
        assert.deepEqual(await page.page.evaluate(() => caches.keys()), ["ko-page-another"]);
    }),
);

test("a new version that one window loads leaves the pictures of another alone", {timeout: 3 * patience}, () =>
    openOwn(async (page, own, copy) => {
        await page.page.reload();
        await page.choose(rocket);
        const other = await page.context.newPage();
        await other.goto(own.address);
        release(copy);
        await other.evaluate(async () => (await navigator.serviceWorker.getRegistration()).update());
        await other.waitForFunction(() => !document.getElementById("update").hidden, {timeout: patience});
        await Promise.all([other.waitForNavigation({timeout: patience}), other.locator("#update button").click()]);
        assert.match(await other.$eval("header p", (line) => line.textContent), /All pictures stay/);
        await page.page.waitForFunction(() => !document.getElementById("update").hidden, {timeout: patience});
        assert.equal(await page.count(), 1);
        assert.match(await page.text("header p"), /Your pictures stay/);
    }),
);

const screens = [
    ["wide, light", {}],
    ["wide, dark", {scheme: "dark"}],
    ["phone, light", {width: 360, height: 740, phone: true}],
    ["phone, dark", {width: 360, height: 740, phone: true, scheme: "dark"}],
];
for (const [name, options] of screens) {
    visit(`accessibility and width: ${name}`, options, async (page) => {
        const check = async (state) => {
            const found = await page.page.evaluate(() =>
                window.axe.run(document, {runOnly: ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"]}),
            );
            assert.deepEqual(
                found.violations.map(({id, nodes}) => [state, id, nodes.map(({html}) => html)]),
                [],
            );
            const overflow = await page.page.evaluate(
                () => document.documentElement.scrollWidth - document.documentElement.clientWidth,
            );
            assert.equal(overflow, 0, `${state}: nothing lies beyond the window's width`);
        };
        await page.page.evaluate(axe);
        await check("start");
        await page.choose(rocket, picture("bright.png"), face, picture("text.jpg"));
        await page.page.$$eval("details", (all) => all.forEach((one) => (one.open = true)));
        await check("results");
    });
}

visit("headings are in order and every picture is an article of its name", {}, async (page) => {
    await page.choose(rocket, face);
    const levels = await page.page.$$eval("h1, main h2, main h3", (all) =>
        all.filter((one) => one.checkVisibility()).map(({tagName}) => tagName),
    );
    assert.deepEqual(levels, ["H1", "H2", "H3", "H2"]);
    const tree = await page.page.accessibility.snapshot({interestingOnly: false});
    const names = [];
    const walk = (node) => {
        names.push(`${node.role}: ${node.name}`);
        node.children?.forEach(walk);
    };
    walk(tree);
    for (const expected of [
        "article: rocket.jpg",
        "article: face.jpg",
        "slider: Divide rocket.jpg between before and after",
        "slider: Strength",
        "checkbox: Repair red eye 1",
        "button: Remove face.jpg",
        "group: Red eyes",
    ]) {
        assert.ok(names.includes(expected), expected);
    }
});
