import { CometdDriver } from "./CometdDriver.js";
import type { Driver, DriverOptions, Library, Publication } from "./Driver.js";
import { FayeDriver } from "./FayeDriver.js";

/** What a page runs: the drivers, each under a key, for a test outside to call. */

declare global {
    /** Put into the page by the test. */
    function deliverToTest(key: string, event: Publication): void;
    var driversOfTest: {
        open(key: string, library: Library, options: DriverOptions): void;
        call(key: string, verb: string, args: unknown[]): unknown;
    };
}

const drivers = new Map<string, Driver>();

globalThis.driversOfTest = {
    open(key, library, options) {
        const driver = library === "cometd" ? new CometdDriver(options) : new FayeDriver(options);
        driver.onEvent = (event) => {
            deliverToTest(key, event);
        };
        drivers.set(key, driver);
    },
    call(key, verb, args) {
        const driver = drivers.get(key) as unknown as Record<string, (...args: unknown[]) => unknown>;
        return driver[verb]?.(...args);
    },
};
