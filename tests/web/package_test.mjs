// The package as npm packs and installs it, and the samples of its manual.
import assert from "node:assert/strict";
import {execFileSync} from "node:child_process";
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {test} from "node:test";

import {folder, ko, picture} from "./support.mjs";

const root = process.env.KO_ROOT;

function hasNpm() {
    try {
        execFileSync("npm", ["--version"], {stdio: "ignore"});
        return true;
    } catch {
        return false;
    }
}

/** The code blocks of a language in a document. */
function samples(document, language) {
    const text = readFileSync(join(root, document), "utf8");
    return [...text.matchAll(new RegExp(`\`\`\`${language}\n(.*?)\`\`\``, "gs"))].map((match) => match[1]);
}

test("versions agree", () => {
    assert.equal(ko.version, JSON.parse(readFileSync(join(folder, "package.json"))).version);
});

test("the package is packed, installed and run", {skip: !hasNpm() && "there is no npm"}, (t) => {
    const project = mkdtempSync(join(tmpdir(), "ko-"));
    t.after(() => rmSync(project, {recursive: true}));
    const npm = (...parts) => execFileSync("npm", parts, {cwd: project, encoding: "utf8", stdio: ["ignore", "pipe", "pipe"]});
    const [packed] = JSON.parse(npm("pack", folder, "--json"));
    const names = packed.files.map(({path}) => path);
    for (const name of ["index.js", "index.d.ts", "worker.js", "ko-simd.wasm", "ko-plain.wasm", "redeye/redeye.projection",
                        "README.md"]) {
        assert.ok(names.includes(name), name);
    }
    writeFileSync(join(project, "package.json"), '{"type": "module", "private": true}');
    npm("install", "--offline", "--no-audit", "--no-fund", `./${packed.filename}`);

    const [sample] = samples("docs/web.md", "js node");
    const [expected] = samples("docs/web.md", "text");
    const {width, height, data} = picture("rocket.jpg");
    writeFileSync(join(project, "rocket.rgb"), data);
    assert.deepEqual([width, height], [640, 427]); // which the sample says
    writeFileSync(join(project, "sample.js"), sample);
    const output = execFileSync(process.execPath, ["sample.js"], {cwd: project, encoding: "utf8"});
    assert.equal(output, expected);
});
