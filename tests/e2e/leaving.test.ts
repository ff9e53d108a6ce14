import { execFile } from "node:child_process";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";

import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { ServerProcess } from "./ServerProcess.js";

/** A program in Node that has disconnected has nothing left to wait for; what there could be takes ten seconds. */

const script = fileURLToPath(new URL("leave.mjs", import.meta.url));

let server: ServerProcess;

beforeAll(async () => {
    server = await ServerProcess.start();
});

afterAll(async () => {
    expect((await server.stop()).code).toBe(0);
});

describe.each(["cometd", "faye"])("a program that uses %s", (library) => {
    it.each(["websocket", "long-polling"])(
        "by %s ends within five seconds of its disconnect",
        async (transport) => {
            const url = `${server.endpoint}?token=${server.token}`;
            const { stdout, stderr } = await promisify(execFile)(process.execPath, [
                script,
                library,
                transport,
                url,
            ]);
            expect(stderr).toBe("");
            expect(stdout).toMatch(/^\d+\n$/);
            expect(Date.now() - Number(stdout)).toBeLessThan(5000);
        },
    );
});
