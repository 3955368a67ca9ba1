// What the tests share: their pictures, made once per file of tests, and views on files by other programs.
import {execFileSync} from "node:child_process";
import {createHash} from "node:crypto";
import {mkdtempSync, readFileSync, rmSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {fileURLToPath} from "node:url";

const here = fileURLToPath(new URL(".", import.meta.url));
const python = process.env.KO_TEST_PYTHON ?? "/usr/bin/python3";

export const samples = fileURLToPath(new URL("../../../samples/", import.meta.url));

export function makeFolder() {
    const folder = mkdtempSync(join(tmpdir(), "ko-page-"));
    process.on("exit", () => rmSync(folder, {recursive: true, force: true}));
    return folder;
}

export function makePictures() {
    const folder = makeFolder();
    execFileSync(python, [join(here, "make_pictures.py"), samples, folder], {stdio: "inherit"});
    return folder;
}

export const describeFile = (path) => JSON.parse(execFileSync(python, [join(here, "describe_file.py"), path]));
export const runPython = (code, ...values) => execFileSync(python, ["-c", code, ...values]).toString();
export const read = (...path) => new Uint8Array(readFileSync(join(...path)));
export const sha256 = (bytes) => createHash("sha256").update(bytes).digest("hex");

// Damaged copies of a file, the same in every run: bytes changed, and the end cut off.
export function* damaged(bytes, count) {
    let state = 12345;
    const next = (limit) => {
        state = (Math.imul(state, 1103515245) + 12345) >>> 0;
        return Math.floor((state / 2 ** 32) * limit);
    };
    for (let index = 0; index < count; ++index) {
        const copy = bytes.slice(0, index % 3 === 0 ? next(bytes.length) : bytes.length);
        for (let change = 0; change < 12 && copy.length > 0; ++change) {
            // Most of what a parser reads lies at the start.
            copy[next(Math.min(copy.length, change % 2 ? copy.length : 1200))] = next(4) === 0 ? 255 : next(256);
        }
        yield copy;
    }
}
