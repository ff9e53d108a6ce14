import { adapt } from "cometd-nodejs-client";

import { CometdDriver } from "./CometdDriver.js";
import type { Driver, DriverOptions, Library } from "./Driver.js";
import { FayeDriver } from "./FayeDriver.js";

// It also redirects console.debug to console.log, for everybody.
const { debug } = console;
adapt();
console.debug = debug;

/** One of the stock libraries in this process. */
export function nodeDriver(library: Library, options: DriverOptions): Driver {
    return library === "cometd" ? new CometdDriver(options) : new FayeDriver(options);
}
