import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { EventReader } from "./EventReader.js";
import { ServerProcess } from "./ServerProcess.js";
import type { Data } from "./StockClient.js";

/** Commands that ask for a line, and the clients that answer, leave or stop them. */

const INPUT = { input: "services::prompt::InputRequestEvent" };
const OWN_TEXT = { useNullOutSink: false };

let server: ServerProcess;

beforeAll(async () => {
    server = await ServerProcess.start();
});

afterAll(async () => {
    await server.stop();
});

/** The first output of a feval, as text in which to look for something. */
function outputOf(response: Data): string {
    expect(response["error"]).toBeUndefined();
    return JSON.stringify(response);
}

describe("a request for input", () => {
    it("is answered by the first who does, and the second is told", async () => {
        const asker = await EventReader.attached(server, INPUT);
        const other = await EventReader.attached(server, INPUT);
        const response = asker.eval("print(input('name? '))", OWN_TEXT);
        const { id, prompt, password } = await other.event("input");
        expect([prompt, password]).toEqual(["name? ", false]);
        expect(await asker.event("input")).toEqual({ id, prompt, password });
        const answers = await Promise.all([
            asker.query("yvm.answer", id, "one"),
            other.query("yvm.answer", id, "two"),
        ]);
        expect((await response)["error"]).toBeUndefined();
        const refusals = answers.filter((answer) => answer["error"] !== undefined);
        expect(refusals).toMatchObject([
            {
                error: {
                    identifier: "ValueError",
                    message: `the request for input "${String(id)}" waits no more: it has been answered, or its command has ended`,
                },
            },
        ]);
        const winner = answers[0]["error"] === undefined ? "one" : "two";
        expect(asker.trace).toBe(`name? <name? >${winner}\n`);
        await asker.stock.disconnect();
        await other.stock.disconnect();
    });

    it("is found by who comes late, and answered though its subscriber has left", async () => {
        const asker = await EventReader.attached(server);
        const subscriber = await EventReader.attached(server, INPUT);
        const response = asker.eval("print(input('late? '))", OWN_TEXT);
        const { id } = await subscriber.event("input");
        await subscriber.stock.disconnect();
        const late = await EventReader.attached(server);
        expect(outputOf(await late.query("yvm.state"))).toContain("late? ");
        await late.answer(id, "found");
        expect((await response)["error"]).toBeUndefined();
        expect(asker.trace).toBe("late? found\n");
        await asker.stock.disconnect();
        await late.stock.disconnect();
    });

    it("ends with a cancel of its command, and the text before it is there", async () => {
        const client = await EventReader.attached(server, INPUT);
        const command = { requestID: "asks", command: "input('stop me')", runOptions: OWN_TEXT };
        const response = client.stock.request(`/yvm/${client.id}/eval`, command);
        const { id } = await client.event("input");
        await client.request("cancel", { requestIDtoCancel: "asks", interrupt: true });
        expect(await response).toMatchObject({ error: { identifier: "yvm.Interrupt", status: 3 } });
        expect(client.trace).toBe("stop me<stop me>");
        expect(await client.query("yvm.answer", id, "x")).toMatchObject({
            error: { identifier: "ValueError" },
        });
        await client.stock.disconnect();
    });

    it("ends with its client, so that others go on", async () => {
        const asker = await EventReader.attached(server, INPUT);
        const other = await EventReader.attached(server);
        void asker.eval("input('nobody')", OWN_TEXT);
        await asker.event("input");
        const waiting = other.eval("print('next')", OWN_TEXT);
        await asker.stock.request("/yvm/detach", { requestID: asker.id, requestIDtoDetach: asker.id });
        expect((await waiting)["error"]).toBeUndefined();
        expect(other.trace).toBe("next\n");
        await asker.stock.disconnect();
        await other.stock.disconnect();
    });

    it("of a command that may not ask, or that nobody could answer, is an error at once", async () => {
        const client = await EventReader.attached(server);
        expect(await client.eval("input()", OWN_TEXT)).toMatchObject({ error: { identifier: "EOFError" } });
        expect(await client.eval("input()", { eventConnections: INPUT, capabilitiesList: [] })).toMatchObject(
            {
                error: {
                    identifier: "RuntimeError",
                    message: 'the command may not ask for input: its run options give it no "input"',
                },
            },
        );
        await client.stock.disconnect();
    });

    it("does not keep the server from its end, that of a thread neither", async () => {
        const ending = await ServerProcess.start();
        const client = await EventReader.attached(ending, INPUT);
        const answers = [
            client.eval("input('the last')", OWN_TEXT),
            client.eval(
                [
                    "import threading",
                    "def ask():",
                    "    try: input()",
                    "    except EOFError as error: print(error)",
                    "thread = threading.Thread(target=ask); thread.start(); thread.join()",
                ].join("\n"),
                OWN_TEXT,
            ),
        ];
        await client.event("input");
        const ended = ending.stop();
        expect(await answers[0]).toMatchObject({
            error: { identifier: "EOFError", message: "the engine stops" },
        });
        expect((await answers[1])?.["error"]).toBeUndefined();
        expect(client.trace).toContain("the engine stops\n");
        // It would say so had it waited in vain.
        expect(await ended).toMatchObject({ code: 0, stderr: "" });
    });
});
