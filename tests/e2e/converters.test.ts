import { linkSync, mkdirSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import { basename, dirname, join, resolve } from "node:path";

import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { EventReader } from "./EventReader.js";
import { consoleFolder, program, ServerProcess } from "./ServerProcess.js";

/** An installation whose module of converters is missing, damaged and put back while its server runs. */

const PROGRESS = "yvm::ProgressEvent";
const LOOP = "import yvm\nfor i in yvm.progress('ab'): pass";

const binaries = dirname(program);
/** Beside the one under test, so that its files can be linked. */
const installation = resolve(binaries, `../installation-${String(process.pid)}`);
const module = "win64/json_event_converter";
const file = join(installation, "bin", `${module}.so`);

let server: ServerProcess;

/** Puts links to the files of a folder into another. Symbolic ones would lead the program to its old place. */
function linkAll(from: string, to: string): void {
    mkdirSync(to, { recursive: true });
    for (const entry of readdirSync(from, { withFileTypes: true })) {
        const [source, target] = [join(from, entry.name), join(to, entry.name)];
        if (entry.isDirectory()) {
            linkAll(source, target);
        } else {
            linkSync(source, target);
        }
    }
}

beforeAll(async () => {
    linkAll(binaries, join(installation, "bin"));
    rmSync(file);
    server = new ServerProcess(
        ["--port", "0", "--console-dir", consoleFolder],
        join(installation, "bin", basename(program)),
    );
    await server.untilListening();
});

afterAll(async () => {
    expect((await server.stop()).code).toBe(0);
    rmSync(installation, { recursive: true });
});

describe("without the module of converters", () => {
    it("events are refused and all else goes on, until it is there", async () => {
        const client = await EventReader.attached(server);
        const subscribe = (eventName: string) => client.request("subscribeEvent", { eventName });
        const missing = {
            error: {
                message: `cannot install the bundle '${join(installation, "bin", module)}': there is no such file, nor '${file}'`,
                status: 2,
            },
        };
        // Each time anew, and whatever the name.
        expect(await subscribe(PROGRESS)).toMatchObject(missing);
        expect(await subscribe("nobody::Knows")).toMatchObject(missing);
        expect(await client.eval(LOOP, { eventConnections: { own: PROGRESS } })).toMatchObject(missing);
        expect((await client.eval(LOOP, {}))["error"]).toBeUndefined();

        writeFileSync(file, "damaged");
        expect(await subscribe(PROGRESS)).toMatchObject({
            error: { message: `cannot install the bundle '${file}': it is not an ELF file` },
        });

        rmSync(file);
        linkSync(join(binaries, `${module}.so`), file);
        const { requestID, error } = await subscribe(PROGRESS);
        expect(error).toBeUndefined();
        await client.eval(LOOP, {});
        expect(await client.event(String(requestID), 2)).toMatchObject({ done: 2, finished: true });

        // It is in the memory of the server now.
        rmSync(file);
        expect((await subscribe(PROGRESS))["error"]).toBeUndefined();
        expect(await subscribe("nobody::Knows")).toMatchObject({
            error: { message: "No converter for nobody::Knows", status: 5 },
        });
        // What was refused has kept its identifier, as told for those that are passed over.
        await client.eval(LOOP, { eventConnections: { own: PROGRESS, fresh: PROGRESS } });
        expect(await client.event("fresh", 2)).toMatchObject({ finished: true });
        expect(client.stock.events.filter(({ data }) => data["requestID"] === "own")).toEqual([]);
        await client.stock.disconnect();
    });
});
