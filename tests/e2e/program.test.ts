import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { createServer, type AddressInfo } from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";

import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { EventReader } from "./EventReader.js";
import { consoleFolder, runToEnd, ServerProcess, type Ended } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** The program from outside: how it starts, what it says when it can't, and how it ends. */

let folder: string;

beforeAll(() => {
    folder = mkdtempSync(join(tmpdir(), "yvm-"));
});

afterAll(() => {
    rmSync(folder, { recursive: true });
});

/** One clear line on standard error, nothing on standard output, and a failure to the shell. */
function expectOneLine({ code, stdout, stderr }: Ended, text: RegExp): void {
    expect(stderr).toMatch(text);
    expect(stderr).toMatch(/^yvm-connector: [^\n]+\n$/);
    expect(stdout).toBe("");
    expect(code).toBeGreaterThan(0);
}

const endless = "print('running')\nwhile True: pass";

/** A client whose command has printed something, and is not answered yet. */
async function clientThatRuns(server: ServerProcess, command: string): Promise<StockClient> {
    const client = await StockClient.attached(server, "busy");
    await client.publish("/yvm/busy/eval/request", {
        requestID: "under way",
        command,
        runOptions: { useNullOutSink: false },
    });
    await client.event(({ channel }) => channel === "/yvm/busy/text/output");
    return client;
}

describe("the program refuses", () => {
    it("a port that is in use", async () => {
        const occupant = createServer();
        await new Promise<void>((resolve) => occupant.listen(0, "127.0.0.1", resolve));
        const port = String((occupant.address() as AddressInfo).port);
        expectOneLine(
            await runToEnd("--port", port, "--console-dir", consoleFolder),
            new RegExp(`127\\.0\\.0\\.1:${port}.*in use`),
        );
        occupant.close();
    });

    it("an unknown option", async () => {
        expectOneLine(await runToEnd("--colour", "red"), /--colour/);
    });

    it("a broken configuration file", async () => {
        const file = join(folder, "broken.toml");
        writeFileSync(file, "port = 0\nhost = \n");
        expectOneLine(await runToEnd("--config", file), /broken\.toml:2/);
    });

    it("an unknown name in the configuration file", async () => {
        const file = join(folder, "unknown.toml");
        writeFileSync(file, "prot = 0\n");
        expectOneLine(await runToEnd("--config", file), /prot/);
    });

    it("a folder without the plug-in", async () => {
        expectOneLine(
            await runToEnd("--port", "0", "--console-dir", consoleFolder, "--plugin-dir", folder),
            /plug-in/,
        );
    });

    it("a console folder that is not there", async () => {
        expectOneLine(await runToEnd("--port", "0", "--console-dir", join(folder, "missing")), /missing/);
    });

    it("to serve without a token beyond this machine", async () => {
        expectOneLine(await runToEnd("--port", "0", "--host", "0.0.0.0", "--no-auth"), /no-auth/);
    });
});

describe("the program", () => {
    it("explains itself", async () => {
        const { code, stdout } = await runToEnd("--help");
        expect(code).toBe(0);
        for (const option of ["--host", "--port", "--token", "--config", "--venv", "--startup", "--cwd"]) {
            expect(stdout).toContain(option);
        }
    });

    it.each(["SIGTERM", "SIGINT"] as const)("ends with 0 on %s", async (signal) => {
        const server = await ServerProcess.start();
        server.kill(signal);
        expect(await server.ended).toMatchObject({ code: 0, signal: null, stderr: "" });
    });

    it("ends with 0 on SIGTERM while a command runs", async () => {
        const server = await ServerProcess.start("--shutdown-timeout", "1");
        const client = await clientThatRuns(server, endless);
        server.kill("SIGTERM");
        expect(await server.ended).toMatchObject({
            code: 0,
            signal: null,
            stderr: "yvm-connector: commands go on after 1 s, and are interrupted\n",
        });
        await client.disconnect();
    });

    it.each(["breakpoint()", "import yvm; yvm.pause(float('inf'))"])(
        "interrupts on SIGTERM what only a client could let go on: %s",
        async (command) => {
            const server = await ServerProcess.start();
            const client = await EventReader.attached(server, { prompt: "ylutil::prompt::PromptEvent" });
            const answer = client.eval(command, {});
            await client.stock.event(({ data }) =>
                ["debug", "paused"].includes((data["eventData"] as Data | undefined)?.["state"] as string),
            );
            const ended = server.stop();
            expect(await answer).toMatchObject({ error: { identifier: "yvm.Interrupt" } });
            // It would say so had it waited in vain.
            expect(await ended).toMatchObject({ code: 0, stderr: "" });
        },
    );

    it("tells on SIGTERM of a command that cannot be interrupted", async () => {
        const server = await ServerProcess.start("--shutdown-timeout", "0");
        const client = await clientThatRuns(
            server,
            "import signal\nsignal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())\n" + endless,
        );
        expect(await server.stop()).toMatchObject({
            code: 0,
            stderr:
                "yvm-connector: commands go on after 0 s, and are interrupted\n" +
                "yvm-connector: a command goes on though it was interrupted, and is left unanswered\n",
        });
        await client.disconnect();
    });

    it("ends with 0 on SIGTERM while a program writes that outlived its command", async () => {
        const server = await ServerProcess.start();
        const client = await StockClient.attached(server, "busy");
        await client.print(
            "busy",
            "import subprocess\nsubprocess.Popen(['sh', '-c', 'while echo outlived; do :; done']);",
        );
        await client.disconnect();
        server.kill("SIGTERM");
        const { code, signal, stdout } = await server.ended;
        expect({ code, signal }).toEqual({ code: 0, signal: null });
        expect(stdout).toContain("outlived\n");
    });

    it("ends at once on a second signal", async () => {
        const server = await ServerProcess.start("--shutdown-timeout", "600");
        const client = await clientThatRuns(server, endless);
        server.kill("SIGTERM");
        // What comes now is refused, which tells that the stop is under way.
        while ((await client.publish("/yvm/busy/variable/request", { requestID: "late" })).successful);
        server.kill("SIGINT");
        expect(await server.ended).toMatchObject({ code: null, signal: "SIGINT" });
        await client.disconnect();
    });

    it("reads a configuration file, and options win over it", async () => {
        const file = join(folder, "good.toml");
        writeFileSync(file, 'token = "from-file"\nport = 1\n');
        const server = await ServerProcess.start("--config", file);
        expect(server.token).toBe("from-file");
        expect((await server.stop()).code).toBe(0);
    });

    it("runs a start-up script in the folder it is told", async () => {
        const script = join(folder, "startup.py");
        writeFileSync(script, "import os\nstarted_in = os.getcwd()\n");
        const server = await ServerProcess.start("--startup", script, "--cwd", folder);
        const client = await StockClient.attached(server, "s");
        expect(await client.print("s", "print(started_in)")).toBe(`${folder}\n`);
        await client.disconnect();
        expect((await server.stop()).code).toBe(0);
    });

    it("lets everybody on this machine in with --no-auth", async () => {
        const server = await ServerProcess.start("--no-auth");
        const client = new StockClient(server);
        expect((await client.handshake()).successful).toBe(true);
        await client.disconnect();
        expect((await server.stop()).code).toBe(0);
    });
});
