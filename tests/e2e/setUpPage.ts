import { mkdirSync } from "node:fs";
import { fileURLToPath } from "node:url";

import type { Browser, Page } from "playwright-core";
import { afterAll, afterEach, beforeAll, beforeEach, expect } from "vitest";

import { launchChromium, waitTimeout } from "./Chromium.js";
import { collectComplaints } from "./collectComplaints.js";
import { ServerProcess } from "./ServerProcess.js";

/** Where tests leave pictures of pages to be looked at. */
export const screenshots = fileURLToPath(new URL("../../build/screenshots/", import.meta.url));

export interface Given {
    readonly server: ServerProcess;
    /** Has opened nothing yet. */
    readonly page: Page;
    /** What that page has complained of: nothing, if the test is to pass. A test may take out what it expects. */
    readonly complaints: string[];
}

/** One server and one Chromium for the tests of a file; before each of them, `use` is given a page of its own. */
export function setUpPage(viewport: { width: number; height: number }, use: (given: Given) => void): void {
    let server: ServerProcess;
    let browser: Browser;
    let given: Given;

    beforeAll(async () => {
        mkdirSync(screenshots, { recursive: true });
        server = await ServerProcess.start();
        browser = await launchChromium();
    });

    afterAll(async () => {
        await browser.close();
        expect((await server.stop()).code).toBe(0);
    });

    beforeEach(async () => {
        const context = await browser.newContext({ viewport });
        context.setDefaultTimeout(waitTimeout);
        const page = await context.newPage();
        given = { server, page, complaints: [] };
        collectComplaints(page, given.complaints);
        use(given);
    });

    afterEach(async () => {
        await given.page.context().close();
        expect(given.complaints).toEqual([]);
    });
}
