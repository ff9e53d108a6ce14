import { afterAll, afterEach, beforeAll, beforeEach, expect } from "vitest";
import { connect, type Client, type Connection } from "yvm-client";

import { ServerProcess } from "./ServerProcess.js";

export interface Given {
    readonly server: ServerProcess;
    readonly yvm: Connection;
    readonly client: Client;
}

/** One server for the tests of a file; before each of them, `use` is given a client of its own on it. */
export function setUpClient(use: (given: Given) => void): void {
    let server: ServerProcess;
    let yvm: Connection;

    beforeAll(async () => {
        server = await ServerProcess.start();
    });

    afterAll(async () => {
        expect((await server.stop()).code).toBe(0);
    });

    beforeEach(async () => {
        yvm = await connect(server.url.href);
        use({ server, yvm, client: await yvm.attach() });
    });

    afterEach(async () => {
        await yvm.disconnect();
    });
}
