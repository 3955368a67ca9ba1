// Archives, checked by other programs.
import assert from "node:assert/strict";
import {execFileSync} from "node:child_process";
import {writeFileSync} from "node:fs";
import {join} from "node:path";
import {test} from "node:test";
import {distinct, zip} from "../../../web/page/zip.js";
import {makeFolder, runPython} from "./support.mjs";

const folder = makeFolder();
const when = new Date(2024, 1, 29, 13, 37, 42);

async function archive(name, files) {
    const path = join(folder, name);
    writeFileSync(path, Buffer.from(await (await zip(files, when)).arrayBuffer()));
    return path;
}

const list =
    "import sys, json, zipfile; z = zipfile.ZipFile(sys.argv[1]); assert z.testzip() is None;" +
    "print(json.dumps([[i.filename, list(i.date_time), z.read(i).hex()] for i in z.infolist()]))";

test("an archive passes the test of unzip and holds the files", async () => {
    const bytes = Uint8Array.from({length: 100000}, (_, index) => index * 31);
    const path = await archive("a.zip", [
        {name: "one.jpg", blob: new Blob([bytes])},
        {name: "Grüße – 写真.png", blob: new Blob(["two"])},
    ]);
    assert.match(execFileSync("unzip", ["-t", path]).toString(), /No errors detected/);
    const [one, two] = JSON.parse(runPython(list, path));
    assert.deepEqual(one, ["one.jpg", [2024, 2, 29, 13, 37, 42], Buffer.from(bytes).toString("hex")]);
    assert.deepEqual(two, ["Grüße – 写真.png", [2024, 2, 29, 13, 37, 42], Buffer.from("two").toString("hex")]);
});

test("no name leads out of the folder, and none occurs twice", async () => {
    const files = ["a.jpg", "A.JPG", "../../b.jpg", "c:\\d.jpg", ".hidden", ""].map((name) => ({name, blob: new Blob([name])}));
    const names = JSON.parse(runPython(list, await archive("b.zip", files))).map(([name]) => name);
    assert.equal(new Set(names.map((name) => name.toLowerCase())).size, files.length);
    assert.ok(
        names.every((name) => !/[\\/:]/.test(name) && !name.startsWith(".")),
        names.join(),
    );
});

test("an empty archive and an empty file are valid", async () => {
    assert.deepEqual(JSON.parse(runPython(list, await archive("c.zip", []))), []);
    const path = await archive("d.zip", [{name: "empty", blob: new Blob([])}]);
    assert.match(execFileSync("unzip", ["-t", path]).toString(), /No errors detected/);
});

test("numbers are put before the ending, and avoid names that exist", () => {
    assert.deepEqual(distinct(["a.jpg", "a (2).jpg", "a.jpg", "b", "b"]), ["a.jpg", "a (2).jpg", "a (3).jpg", "b", "b (2)"]);
});
