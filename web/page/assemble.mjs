// Puts the page together: node assemble.mjs OUT PACKAGE copies the page into the folder OUT and the package into OUT/ko, and
// writes the list of files that the service worker keeps. OUT then serves from any folder of any web server.
import {createHash} from "node:crypto";
import {cpSync, mkdirSync, readFileSync, readdirSync, writeFileSync} from "node:fs";
import {join, relative, sep} from "node:path";
import {fileURLToPath} from "node:url";

const source = fileURLToPath(new URL(".", import.meta.url));
const leftOut = ["assemble.mjs", "package.json", "README.md"];
const ofDevelopers = /node_modules|\.d\.ts$|package(-lock)?\.json$|\.md$/;

function filesOf(folder) {
    const entries = readdirSync(folder, {withFileTypes: true, recursive: true});
    return entries
        .filter((entry) => entry.isFile())
        .map((entry) => join(entry.parentPath ?? entry.path, entry.name))
        .sort();
}

// Everything that the page may load. The two files of the service worker are not part of it: the browser keeps them itself.
function listOf(out) {
    const hash = createHash("sha256");
    const paths = filesOf(out).map((path) => relative(out, path).split(sep).join("/"));
    const kept = paths.filter((path) => !["service-worker.js", "files.js"].includes(path));
    for (const path of kept) {
        hash.update(path)
            .update("\0")
            .update(readFileSync(join(out, path)));
    }
    return {version: hash.digest("hex").slice(0, 16), files: ["./", ...kept]};
}

export function assemble(out, library) {
    mkdirSync(out, {recursive: true});
    cpSync(source, out, {recursive: true, filter: (path) => !leftOut.some((name) => path === join(source, name))});
    cpSync(library, join(out, "ko"), {recursive: true, filter: (path) => !ofDevelopers.test(path)});
    writeFileSync(join(out, "files.js"), `self.koFiles = ${JSON.stringify(listOf(out), null, 1)};\n`);
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
    const [out, library] = process.argv.slice(2);
    if (!out || !library) {
        console.error("usage: node assemble.mjs OUT PACKAGE");
        process.exit(2);
    }
    assemble(out, library);
}
