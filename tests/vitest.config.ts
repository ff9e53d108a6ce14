import { defineConfig } from "vitest/config";

export default defineConfig({
    test: {
        include: ["e2e/**/*.test.ts"],
        // Bounds on failure, not expectations: each test waits for what it needs.
        testTimeout: 180_000,
        hookTimeout: 180_000,
        expect: { poll: { timeout: 60_000 } },
        // Each file starts a server of its own; side by side they would only slow one another down.
        fileParallelism: false,
    },
});
