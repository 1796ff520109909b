// The library: its operations off the main thread, and on it under `sync`.
'use strict';
const {TextDecoder} = require('util');
const {ways, prepare} = require('./calls');
const {Events, waitOnce} = require('./events');
const native = require('./native');
const turns = require('./turns');

/** Rejects as soon as the signal is aborted. What has been called goes on and keeps its turn. */
function untilAborted(promise, signal) {
    if (!signal) return promise;
    return new Promise((resolve, reject) => {
        const aborted = () => reject(signal.reason);
        const settled = (action) => (value) => {
            signal.removeEventListener('abort', aborted);
            action(value);
        };
        signal.addEventListener('abort', aborted);
        promise.then(settled(resolve), settled(reject));
    });
}

class Library {
    #native;
    #patience;
    #decoder = null;
    #sync;

    /** The library file at the path, or by name where the system looks for libraries. */
    static load(path) {
        return new Library(native.load(path));
    }

    constructor(loaded, patience) {
        this.#native = loaded;
        this.#patience = patience;
        this.functions = loaded.functions;
        this.initialised = loaded.initialised;
        Object.defineProperties(this, {functions: {enumerable: false}, initialised: {enumerable: false}});
    }

    /** The encoding of texts that are given out; what is taken in is UTF-8. */
    get encoding() {
        return this.#decoder ? this.#decoder.encoding : 'utf-8';
    }
    set encoding(name) {
        const decoder = new TextDecoder(name);
        this.#decoder = decoder.encoding === 'utf-8' ? null : decoder;
    }

    decode(bytes) {
        return this.#decoder ? this.#decoder.decode(bytes) : bytes.toString();
    }

    /** The same library, whose operations wait no longer than this for their turn, in milliseconds, and
     * are busy then. It does not shorten an operation itself. */
    within(patience) {
        const library = new Library(this.#native, patience > 0 ? patience : 0);
        library.encoding = this.encoding;
        return library;
    }

    /** Keys that come and go, from now on. */
    events(options) {
        return new Events(this, options);
    }

    /** The operations on the calling thread. Busy while another operation is in progress. */
    get sync() {
        this.#sync ||= new SyncOperations(this);
        return this.#sync;
    }

    async perform(name, values) {
        const facts = native.operations[name];
        const count = facts.inputs.length;
        const {signal} = values[count] || {};
        if (signal) signal.throwIfAborted();
        if (facts.way === 'event') return waitOnce(this, {signal});
        const handedOn = prepare(name, facts, values);
        if (facts.beside) {
            await this.#initialiseQuietly();
            return native.callHere(ways[facts.way](this, name, facts, handedOn));
        }
        if (facts.initialiseFirst && !this.initialised()) await this.initialize({signal});
        await turns.enter(name, this.#patience, signal);
        if (signal && signal.aborted) {
            turns.leave();
            throw signal.reason;
        }
        const done = native.callElsewhere(ways[facts.way](this, name, facts, handedOn));
        return untilAborted(done.finally(turns.leave), signal);
    }

    // What asks no token binds nothing beside who has the turn.
    async #initialiseQuietly() {
        if (!this.initialised() && !turns.isTaken()) await this.initialize().catch(() => {});
    }
}

class SyncOperations {
    #library;

    constructor(library) {
        this.#library = library;
    }

    perform(name, facts, values) {
        const library = this.#library;
        const handedOn = prepare(name, facts, values);
        if (facts.beside) return native.callHere(ways[facts.way](library, name, facts, handedOn));
        if (facts.initialiseFirst && !library.initialised()) this.initialize();
        turns.enterAtOnce(name);
        try {
            return native.callHere(ways[facts.way](library, name, facts, handedOn));
        } finally {
            turns.leave();
        }
    }
}

for (const [name, facts] of Object.entries(native.operations)) {
    Library.prototype[facts.operation] = {
        [facts.operation](...values) {
            return this.perform(name, values);
        },
    }[facts.operation];
    if (facts.way === 'event') continue;
    SyncOperations.prototype[facts.operation] = {
        [facts.operation](...values) {
            return this.perform(name, facts, values);
        },
    }[facts.operation];
}

module.exports = {Library};
