// The page in a browser: opens it, gives it pictures, and watches what it says, asks for and downloads.
import assert from "node:assert/strict";
import {existsSync, mkdirSync, readFileSync, readdirSync, rmSync} from "node:fs";
import {join} from "node:path";
import {fileURLToPath} from "node:url";
import puppeteer from "puppeteer-core";
import {assemble} from "../../../web/page/assemble.mjs";
import {serve} from "./server.mjs";
import {makeFolder} from "./support.mjs";

const mock = fileURLToPath(new URL("./mock/", import.meta.url));
export const patience = Number(process.env.KO_TEST_PATIENCE ?? 90000);

// The folder with the page: KO_WEB_SITE is one put together, KO_WEB_PACKAGE the package to put it together with.
export function makeSite() {
    if (process.env.KO_WEB_SITE) {
        return process.env.KO_WEB_SITE;
    }
    const site = join(makeFolder(), "site");
    assemble(site, process.env.KO_WEB_PACKAGE ?? mock);
    return site;
}

export async function launch(site) {
    const work = makeFolder();
    const log = join(work, "net.json");
    const server = await serve(site);
    const browser = await puppeteer.launch({
        executablePath: process.env.KO_TEST_CHROMIUM ?? "/usr/bin/chromium",
        args: ["--no-sandbox", "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1", `--log-net-log=${log}`],
    });
    return {
        address: server.address,
        server,
        open: (options) => open(browser, server.address, join(work, `downloads-${Math.random()}`), options),
        async close() {
            await browser.close();
            await server.close();
            return requestsOf(log, server.address);
        },
    };
}

// Addresses that pages of an origin asked for, by the browser's own record, which knows the requests of workers too.
function requestsOf(log, address) {
    const {constants, events} = JSON.parse(readFileSync(log, "utf8").replace(/,\s*$/, "]}"));
    const type = constants.logEventTypes.URL_REQUEST_START_JOB;
    const origin = new URL(address).origin;
    const ours = events.filter((event) => event.type === type && event.params?.initiator === origin);
    return ours.map((event) => event.params.url);
}

async function open(browser, address, downloads, {width = 1200, height = 900, scheme = "light", phone = false} = {}) {
    mkdirSync(downloads, {recursive: true});
    const context = await browser.createBrowserContext({downloadBehavior: {policy: "allowAndName", downloadPath: downloads}});
    const page = await context.newPage();
    const complaints = [];
    page.on("console", (message) => ["error", "warn"].includes(message.type()) && complaints.push(message.text()));
    page.on("pageerror", (error) => complaints.push(String(error)));
    await page.setViewport({width, height, isMobile: phone, hasTouch: phone});
    await page.emulateMediaFeatures([{name: "prefers-color-scheme", value: scheme}]);
    await page.evaluateOnNewDocument(watchTasks);
    await page.goto(address);
    await page.waitForFunction(() => document.getElementById("version").textContent.startsWith("ko "), {timeout: patience});
    return new Visit(page, context, downloads, complaints);
}

// Runs in the page: keeps how long tasks of the main thread took that took long.
function watchTasks() {
    window.longTasks = [];
    const observer = new PerformanceObserver((list) =>
        window.longTasks.push(...list.getEntries().map(({duration}) => duration)),
    );
    observer.observe({type: "longtask", buffered: true});
}

class Visit {
    constructor(page, context, downloads, complaints) {
        Object.assign(this, {page, context, downloads, complaints});
    }

    // Chooses files and waits until all are finished.
    async choose(...paths) {
        const count = await this.count();
        const input = await this.page.$("#files");
        await input.uploadFile(...paths);
        await this.waitForCards(count + paths.length);
        await this.finished();
    }

    count = () => this.page.$$eval(".picture", (cards) => cards.length);

    waitForCards(count) {
        return this.page.waitForFunction(
            (many) => document.querySelectorAll(".picture").length === many,
            {timeout: patience},
            count,
        );
    }

    finished() {
        const quiet = () => !document.querySelector('.picture[aria-busy="true"]');
        return this.page.waitForFunction(quiet, {timeout: patience});
    }

    text = (selector) => this.page.$eval(selector, (element) => element.innerText);
    texts = (selector) => this.page.$$eval(selector, (elements) => elements.map((element) => element.innerText));
    exists = async (selector) => (await this.page.$(selector)) !== null;
    click = (selector) => this.page.locator(selector).click();

    // Clicks and gives the path of the file that is downloaded.
    async download(selector) {
        const before = new Set(readdirSync(this.downloads));
        await this.click(selector);
        for (let end = Date.now() + patience; Date.now() < end;) {
            const [name] = readdirSync(this.downloads).filter((file) => !before.has(file) && !file.endsWith(".crdownload"));
            if (name && existsSync(join(this.downloads, name))) {
                return join(this.downloads, name);
            }
            await new Promise((resolve) => setTimeout(resolve, 50));
        }
        return assert.fail("nothing is downloaded");
    }

    async close() {
        await this.context.close();
        rmSync(this.downloads, {recursive: true, force: true});
        assert.deepEqual(this.complaints, []);
    }
}
