// A web server for one folder, as small as a test needs it. Pages can be taken away to see how the browser does without a
// network.
import {createServer} from "node:http";
import {readFile} from "node:fs/promises";
import {extname, join, normalize} from "node:path";

const types = {
    ".html": "text/html; charset=utf-8",
    ".css": "text/css",
    ".js": "text/javascript",
    ".mjs": "text/javascript",
    ".svg": "image/svg+xml",
    ".webmanifest": "application/manifest+json",
    ".wasm": "application/wasm",
};

async function answer(folder, request, response) {
    const path = normalize(decodeURIComponent(new URL(request.url, "http://localhost").pathname));
    const file = join(folder, path.endsWith("/") ? path + "index.html" : path);
    try {
        const bytes = await readFile(file);
        response.writeHead(200, {"Content-Type": types[extname(file)] ?? "application/octet-stream"});
        response.end(bytes);
    } catch {
        response.writeHead(404).end();
    }
}

export async function serve(folder, port = 0) {
    const server = createServer((request, response) => answer(folder, request, response));
    await new Promise((resolve) => server.listen(port, "127.0.0.1", resolve));
    return {
        address: `http://127.0.0.1:${server.address().port}/`,
        close() {
            server.closeAllConnections();
            return new Promise((resolve) => server.close(resolve));
        },
    };
}
