// Keeps the page for use without a network. The list of files comes from files.js, which is written when the page is put
// together; its version is a hash over all of them, so that any change makes a new cache beside the old one, which serves open
// pages until the new one takes over.
importScripts("./files.js");

const prefix = "ko-page-";
const name = prefix + self.koFiles.version;

addEventListener("install", (event) => {
    const requests = self.koFiles.files.map((file) => new Request(file, {cache: "reload"}));
    event.waitUntil(caches.open(name).then((cache) => cache.addAll(requests)));
});

async function clean() {
    const old = (await caches.keys()).filter((other) => other.startsWith(prefix) && other !== name);
    await Promise.all(old.map((other) => caches.delete(other)));
    await self.clients.claim();
}

addEventListener("activate", (event) => event.waitUntil(clean()));

addEventListener("message", (event) => {
    if (event.data === "activate") {
        self.skipWaiting();
    }
});

async function answer(request) {
    const cache = await caches.open(name);
    return (await cache.match(request, {ignoreSearch: true})) ?? fetch(request);
}

addEventListener("fetch", (event) => {
    if (event.request.method === "GET" && new URL(event.request.url).origin === location.origin) {
        event.respondWith(answer(event.request));
    }
});
