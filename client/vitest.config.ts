import { defineConfig } from "vitest/config";

export default defineConfig({
    // The time is a bound on failure: nothing here waits for a clock.
    test: { include: ["test/**/*.test.ts"], testTimeout: 60_000 },
});
