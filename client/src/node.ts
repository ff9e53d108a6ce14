/**
 * The door for Node.js. Importing it defines `globalThis.window` with the WebSocket and the
 * XMLHttpRequest that the Bayeux library looks for there.
 */
import { adapt } from "cometd-nodejs-client";

// It also redirects console.debug to console.log, for everybody.
const { debug } = console;
adapt();
console.debug = debug;

export * from "./common/index.js";
export { connect } from "./common/connect.js";
