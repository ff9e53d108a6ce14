import { fileURLToPath } from "node:url";

import { chromium, type Browser, type Page } from "playwright-core";
import { build, type Rollup } from "vite";

import type { Driver, DriverOptions, Library, Message, Publication } from "./Driver.js";

/** How long a page is waited for, in milliseconds: a bound on failure, as that of `expect.poll`. */
export const waitTimeout = 60_000;

/** The system's browser, without a window. */
export function launchChromium(): Promise<Browser> {
    return chromium.launch({
        executablePath: process.env["CHROMIUM"] ?? "/usr/bin/chromium",
        timeout: waitTimeout,
        args: [
            "--no-sandbox",
            "--disable-gpu",
            "--disable-quic",
            "--no-first-run",
            "--disable-background-networking",
            "--disable-component-update",
            "--disable-sync",
        ],
    });
}

const bundles = new Map<string, Promise<string>>();

/** A module of this folder and all that it imports, the stock libraries among them, as one script for a page. */
export function bundle(module: string): Promise<string> {
    const made =
        bundles.get(module) ??
        build({
            configFile: false,
            logLevel: "error",
            define: { global: "globalThis" },
            build: {
                write: false,
                minify: false,
                lib: {
                    entry: fileURLToPath(new URL(module, import.meta.url)),
                    formats: ["iife"],
                    name: "inPage",
                },
            },
        }).then((result) => (result as Rollup.RollupOutput[])[0]?.output[0].code ?? "");
    bundles.set(module, made);
    return made;
}

/** A page of some origin, blank but for the stock libraries. */
export class LibraryPage {
    readonly page: Page;
    readonly #drivers = new Map<string, PageDriver>();

    private constructor(page: Page) {
        this.page = page;
    }

    /** Opens `url`, whose own content does not matter, and loads the libraries into it. */
    static async open(page: Page, url: string): Promise<LibraryPage> {
        const self = new LibraryPage(page);
        page.setDefaultTimeout(waitTimeout);
        await page.exposeFunction("deliverToTest", (key: string, event: Publication) => {
            self.#drivers.get(key)?.onEvent(event);
        });
        await page.goto(url);
        await page.addScriptTag({ content: await bundle("inPage.ts") });
        return self;
    }

    async driver(library: Library, options: DriverOptions): Promise<Driver> {
        const key = String(this.#drivers.size);
        const driver = new PageDriver(this.page, key);
        this.#drivers.set(key, driver);
        await this.page.evaluate(
            ([name, kind, opts]) => {
                driversOfTest.open(name, kind, opts);
            },
            [key, library, options] as const,
        );
        return driver;
    }
}

/** A driver that lives in a page. */
class PageDriver implements Driver {
    onEvent: Driver["onEvent"] = () => undefined;
    readonly #page: Page;
    readonly #key: string;

    constructor(page: Page, key: string) {
        this.#page = page;
        this.#key = key;
    }

    #call<T>(verb: keyof Driver, ...args: unknown[]): Promise<T> {
        return this.#page.evaluate(([key, name, values]) => driversOfTest.call(key, name, values), [
            this.#key,
            verb,
            args,
        ] as const) as Promise<T>;
    }

    handshake(token?: string): Promise<Message> {
        return this.#call("handshake", token);
    }

    subscribe(channel: string): Promise<Message> {
        return this.#call("subscribe", channel);
    }

    unsubscribe(channel: string): Promise<Message> {
        return this.#call("unsubscribe", channel);
    }

    publish(channel: string, data: unknown): Promise<Message> {
        return this.#call("publish", channel, data);
    }

    batch(publications: readonly Publication[]): Promise<Message[]> {
        return this.#call("batch", publications);
    }

    disconnect(): Promise<void> {
        return this.#call("disconnect");
    }

    async traffic(): ReturnType<Driver["traffic"]> {
        // What a page hands over is a copy.
        const { sent, received, complaints } =
            await this.#call<Awaited<ReturnType<Driver["traffic"]>>>("traffic");
        return { sent, received, complaints };
    }
}
