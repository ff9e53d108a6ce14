import { execFile } from "node:child_process";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";

import { describe, expect, it } from "vitest";
import { connect, ndarray, type Client, type Connection, type NdArray, type YdaValue } from "yvm-client";

import { ServerProcess } from "./ServerProcess.js";
import { setUpClient } from "./setUpClient.js";

/** The package as users install it, with the real server. */

let server: ServerProcess;
let yvm: Connection;
let client: Client;

setUpClient((given) => {
    ({ server, yvm, client } = given);
});

describe("eval", () => {
    it("resolves to the text", async () => {
        expect(await client.eval("1+1")).toEqual({ text: "2\n", stdout: "2\n", stderr: "" });
    });

    it("streams text while the command runs", async () => {
        const seen: string[] = [];
        const request = client.eval(
            "import time\nfor i in range(3):\n    print(i, flush=True)\n    time.sleep(0.05)",
        );
        for await (const { text } of request.output) {
            seen.push(text);
        }
        expect(seen.join("")).toBe("0\n1\n2\n");
        expect(seen.length).toBeGreaterThan(1);
    });

    it("rejects with the failure", async () => {
        await expect(client.eval("1/0").done).rejects.toMatchObject({
            name: "YvmError",
            identifier: "ZeroDivisionError",
            message: "division by zero",
            stackFrames: [{ lineNumber: 1, sourceLine: "1/0" }],
        });
    });

    it("carries a command and an output of megabytes", async () => {
        const text = "äß".repeat(1_000_000);
        expect((await client.eval(`print("${text}")`)).stdout).toBe(`${text}\n`);
    });
});

describe("feval", () => {
    it("decomposes a matrix", async () => {
        const [u, s, vt] = (await client.feval(
            "numpy.linalg.svd",
            [
                ndarray([
                    [3, 0],
                    [4, 5],
                ]),
            ],
            {
                numOutputs: 3,
            },
        )) as [NdArray<"float64">, NdArray<"float64">, NdArray<"float64">];
        expect([u.shape, s.shape, vt.shape]).toEqual([[2, 2], [2], [2, 2]]);
        expect(s.data[0]).toBeCloseTo(Math.sqrt(45), 12);
        expect(s.data[1]).toBeCloseTo(Math.sqrt(5), 12);
    });

    it("takes nested lists where the function does", async () => {
        expect(
            await client.feval("numpy.linalg.det", [
                [
                    [2, 0],
                    [0, 3],
                ],
            ]),
        ).toEqual([6]);
    });

    const values: YdaValue[] = [
        null,
        true,
        -0,
        1.5,
        NaN,
        -Infinity,
        7n,
        2n ** 64n - 1n,
        "grüße \u{1f600}",
        ndarray([
            [1, 2, 3],
            [4, 5, NaN],
        ]),
        ndarray([1, 2, 3], [3], "int8"),
        ndarray([2n ** 62n, -1n], [2], "int64"),
        ndarray([true, false, true], [3], "bool"),
        ndarray([0.5, 1.5], [1, 2, 1], "float32"),
        ndarray([1, 2, 3, 4], [2], "complex128"),
        ndarray([1, -1], [], "complex64"),
        ndarray([], [0, 3], "uint16"),
        [1, "two", [null, false]],
        { name: "x", nested: { list: [1] } },
    ];

    it.each([["preferYDAShort"], ["alwaysYDALong"]] as const)(
        "brings every kind of value there and back, by %s",
        async (format) => {
            await client.eval("def same(*values):\n    return list(values)");
            expect(await client.feval("same", values, { format })).toEqual([values]);
        },
    );

    it("brings a million doubles there and back, each bit", async () => {
        await client.eval("def same(value):\n    return value");
        const data = Float64Array.from(
            { length: 1_000_000 },
            (_, i) => Math.sin(i) * 10 ** ((i % 600) - 300),
        );
        const [back] = (await client.feval("same", [data])) as [NdArray<"float64">];
        expect(Buffer.from(back.data.buffer).equals(Buffer.from(data.buffer))).toBe(true);
    });

    it("gives the text that the function printed", async () => {
        const request = client.feval("print", ["hello"], { numOutputs: 0 });
        expect(await request).toEqual([]);
        expect(request.text).toBe("hello\n");
    });
});

describe("a connection", () => {
    it("is refused with the server's reason for a wrong token", async () => {
        await expect(connect(server.endpoint, { token: "guess" })).rejects.toMatchObject({
            name: "RefusedError",
            code: 401,
        });
    });

    it("lets the process end once it is disconnected", async () => {
        const script = `
            import { connect } from "yvm-client";
            const yvm = await connect(process.argv[1]);
            const client = await yvm.attach();
            process.stdout.write((await client.eval("1+1")).text);
            await yvm.disconnect();`;
        const { stdout } = await promisify(execFile)(
            process.execPath,
            ["--input-type=module", "--eval", script, server.url.href],
            { cwd: fileURLToPath(new URL(".", import.meta.url)), timeout: 60_000 },
        );
        expect(stdout).toBe("2\n");
    });

    it("carries several clients, which share the workspace", async () => {
        const other = await yvm.attach();
        await client.eval("shared = 5");
        expect((await other.eval("shared")).text).toBe("5\n");
        await other.detach();
        expect((await client.eval("shared")).text).toBe("5\n");
        await expect(other.eval("shared").done).rejects.toMatchObject({ name: "ClosedError" });
    });

    it("is told when the server goes", async () => {
        const short = await ServerProcess.start();
        const connection = await connect(short.url.href);
        const attached = await connection.attach();
        const lost = new Promise<string>((resolve) => {
            connection.onStatus(({ state }) => {
                resolve(state);
            });
        });
        const request = attached.eval("import time; time.sleep(60)");
        const rejected = expect(request.done).rejects.toBeInstanceOf(Error);
        expect((await short.stop()).code).toBe(0);
        expect(await lost).toBe("lost");
        await rejected;
        await connection.disconnect();
    });
});
