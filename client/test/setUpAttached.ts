import { afterEach, beforeEach } from "vitest";

import { connect, type Client, type Connection } from "../src/node.js";
import { FakeServer } from "./FakeServer.js";

export interface Given {
    readonly server: FakeServer;
    readonly yvm: Connection;
    readonly client: Client;
}

/** Before each test of a file, `use` is given a server that is driven by hand, and the client "c1" on it. */
export function setUpAttached(use: (given: Given) => void): void {
    let given: Given;

    beforeEach(async () => {
        const server = await FakeServer.start();
        const yvm = await connect(server.url, { token: "secret" });
        given = { server, yvm, client: await yvm.attach({ requestID: "c1" }) };
        use(given);
    });

    afterEach(async () => {
        await given.yvm.disconnect();
        await given.server.stop();
    });
}
