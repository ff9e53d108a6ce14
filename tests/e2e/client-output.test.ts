import { describe, expect, it } from "vitest";
import type { Client, Connection } from "yvm-client";

import { readUntil } from "./readUntil.js";
import { setUpClient } from "./setUpClient.js";

/** What the client package makes of text: the real client, the real server. */

let yvm: Connection;
let client: Client;

setUpClient((given) => {
    ({ yvm, client } = given);
});

describe("a command's text", () => {
    it("is streamed whole, in order, before the command has ended", async () => {
        const request = client.eval("for i in range(200_000): print(i)", { output: "stream" });
        let text = "";
        for await (const chunk of request.output) {
            expect(chunk.stream).toBe(0);
            text += chunk.text;
        }
        expect(text).toBe(Array.from({ length: 200_000 }, (_, line) => `${String(line)}\n`).join(""));
        expect((await request).text).toBe("");
    });

    it("has arrived when the command has ended", async () => {
        for (let round = 0; round < 50; round++) {
            let seen = "";
            const request = client.eval(`print("x" * 10000); print(${String(round)})`, {
                output: "stream",
                onText: ({ text }) => (seen += text),
            });
            await request;
            expect(seen).toBe(`${"x".repeat(10_000)}\n${String(round)}\n`);
        }
    });

    it("is dropped by the engine when nobody wants it", async () => {
        expect(await client.eval("print('x')", { output: "none" })).toEqual({
            text: "",
            stdout: "",
            stderr: "",
        });
    });
});

describe("the client-wide text", () => {
    it("holds what commands print whose text was not asked for", async () => {
        const output = client.output();
        await client.eval("import sys; print('out'); print('err', file=sys.stderr)", { output: "client" });
        expect(await output.next()).toEqual({ done: false, value: { stream: 0, text: "out\n" } });
        expect(await output.next()).toEqual({ done: false, value: { stream: 1, text: "err\n" } });
        await output.close();
    });

    it("of another client's commands comes too, and of none that go their own way", async () => {
        const other = await yvm.attach();
        const output = client.output();
        await output.installed;
        expect((await other.eval("print('own')")).text).toBe("own\n");
        await other.eval("print('shared')", { output: "client" });
        expect(await readUntil(output, "shared\n")).toBe("shared\n");
        await output.close();
    });

    it("goes to the last client that asked, and after it to the server's console", async () => {
        const other = await yvm.attach();
        const first = client.output();
        await first.installed;
        const second = other.output();
        await second.installed;
        await client.eval("print('for the second')", { output: "client" });
        expect(await readUntil(second, "second\n")).toBe("for the second\n");
        await second.close();
        await first.close();
        await client.eval("print('for the console')", { output: "client" });
        const third = client.output();
        await client.eval("print('for the third')", { output: "client" });
        expect(await readUntil(third, "third\n")).toBe("for the third\n");
        await third.close();
    });

    it("is read by any number of loops, one after the other and side by side", async () => {
        for (let round = 0; round < 20; round++) {
            const outputs = [client.output(), client.output()];
            await client.eval(`print(${String(round)})`, { output: "client" });
            for (const output of outputs) {
                expect(await readUntil(output, "\n")).toBe(`${String(round)}\n`);
                await output.close();
            }
        }
    });

    it("survives the detach of the client that had it", async () => {
        const output = client.output();
        await output.installed;
        await client.detach();
        expect(await output.next()).toEqual({ done: true, value: undefined });
        const next = await yvm.attach();
        const nexts = next.output();
        await next.eval("print('on')", { output: "client" });
        expect(await readUntil(nexts, "on\n")).toBe("on\n");
        await nexts.close();
    });

    it("of 20 MB arrives whole", async () => {
        const output = client.output();
        const done = client.eval("for i in range(200_000): print(f'{i:099}')\nprint('end')", {
            output: "client",
        });
        const text = await readUntil(output, "\nend\n");
        await done;
        await output.close();
        expect(text.length).toBe(20_000_004);
        expect(text).toBe(
            `${Array.from({ length: 200_000 }, (_, line) => `${String(line).padStart(99, "0")}\n`).join("")}end\n`,
        );
    });
});
