import { defineConfig } from "vitest/config";

export default defineConfig({
    test: {
        include: ["e2e/**/*.test.ts"],
        // A bound on failure, not an expectation: each test waits for what it needs.
        testTimeout: 60_000,
        hookTimeout: 60_000,
        // Each file starts a server of its own; side by side they would only slow one another down.
        fileParallelism: false,
    },
});
