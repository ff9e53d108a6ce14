import { defineConfig } from "vitest/config";

export default defineConfig({
    // The server may serve the page below any path.
    base: "./",
    // The client's sources, so that the page needs no built package.
    resolve: { alias: { "yvm-client": new URL("../client/src/browser.ts", import.meta.url).pathname } },
    build: {
        outDir: "../build/console",
        emptyOutDir: true,
        target: "es2022",
        // Would be inlined as data: URLs, which the server's content security policy refuses.
        assetsInlineLimit: 0,
    },
    // The time is a bound on failure: nothing here waits for a clock.
    test: { include: ["test/**/*.test.ts"], testTimeout: 60_000 },
});
