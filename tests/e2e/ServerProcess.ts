import { spawn, type ChildProcessByStdio } from "node:child_process";
import { once } from "node:events";
import { existsSync } from "node:fs";
import { resolve } from "node:path";
import { createInterface } from "node:readline";
import type { Readable } from "node:stream";
import { fileURLToPath } from "node:url";

const root = fileURLToPath(new URL("../../", import.meta.url));

/** The program under test; `YVM_BUILD_DIR` names the build folder, default `build/dev`. */
export const program = resolve(root, process.env["YVM_BUILD_DIR"] ?? "build/dev", "bin/yvm-connector");

/** The built web console. */
export const consoleFolder = resolve(root, "build/console");

/** What a run of the program that ended left behind. */
export interface Ended {
    readonly code: number | null;
    readonly signal: NodeJS.Signals | null;
    readonly stdout: string;
    readonly stderr: string;
}

/** Runs the program to its end, for runs that are expected to end by themselves. */
export async function runToEnd(...options: string[]): Promise<Ended> {
    return new ServerProcess(options).ended;
}

/** The real server in a process of its own, on a port that it chose. */
export class ServerProcess {
    /** Resolves when the process has ended. */
    readonly ended: Promise<Ended>;
    readonly #child: ChildProcessByStdio<null, Readable, Readable>;
    #address: URL | undefined;

    /** Starts the program, or another installation's, as it is told; `start` is what most tests want. */
    constructor(options: string[], file = program) {
        if (!existsSync(file)) {
            throw new Error(`${file} is missing: build it, or name the build folder in YVM_BUILD_DIR`);
        }
        this.#child = spawn(file, options, { cwd: root, stdio: ["ignore", "pipe", "pipe"] });
        // A test that fails half-way leaves no server behind.
        const kill = () => this.#child.kill("SIGKILL");
        process.once("exit", kill);
        let stdout = "";
        let stderr = "";
        this.#child.stdout.on("data", (text: Buffer) => (stdout += text.toString()));
        this.#child.stderr.on("data", (text: Buffer) => (stderr += text.toString()));
        this.ended = once(this.#child, "close").then(([code, signal]) => {
            process.off("exit", kill);
            return { code: code as number | null, signal: signal as NodeJS.Signals | null, stdout, stderr };
        });
    }

    /** Starts a server, on a free port unless it is given one, and waits until it listens. */
    static async start(...options: string[]): Promise<ServerProcess> {
        const server = new ServerProcess([
            ...(options.includes("--port") ? [] : ["--port", "0"]),
            "--console-dir",
            consoleFolder,
            ...options,
        ]);
        await server.untilListening();
        return server;
    }

    /** Resolves when the address has been printed; rejects if the process ends before. */
    async untilListening(): Promise<void> {
        const lines = createInterface(this.#child.stdout);
        const address = new Promise<URL>((found) => {
            lines.on("line", (line) => {
                const printed = /^yvm-connector: listening on (http:\/\/\S+)$/.exec(line)?.[1];
                if (printed !== undefined) {
                    found(new URL(printed));
                }
            });
        });
        const early = this.ended.then(({ code, stderr }) => {
            throw new Error(`the server ended with ${String(code)} before it listened: ${stderr}`);
        });
        this.#address = await Promise.race([address, early]);
    }

    /** The address as printed, with its token. */
    get url(): URL {
        if (!this.#address) {
            throw new Error("the server does not listen yet");
        }
        return new URL(this.#address);
    }

    /** The Bayeux endpoint, without the token. */
    get endpoint(): string {
        return `${this.url.origin}/bayeux`;
    }

    get token(): string {
        return this.url.searchParams.get("token") ?? "";
    }

    /** Of the operating system. */
    get pid(): number {
        if (this.#child.pid === undefined) {
            throw new Error("the server has not started");
        }
        return this.#child.pid;
    }

    kill(signal: NodeJS.Signals): void {
        this.#child.kill(signal);
    }

    /** Ends the server as an operator does. */
    async stop(): Promise<Ended> {
        this.kill("SIGTERM");
        return this.ended;
    }
}
