/** The door for browsers, which bring all that the transport needs. */
export * from "./common/index.js";
export { connect } from "./common/connect.js";
