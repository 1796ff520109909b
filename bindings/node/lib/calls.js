// One operation, with everything that must not go wrong around it: the inputs' checks, the output
// buffer and what the library says about its length.
//
// Lengths come from the token in the end, and a token may say anything. Therefore texts end at their
// NUL inside the buffer that was offered, whatever length is reported; sizes are taken from the bounds
// in the public header; and a length that exceeds its bound is a failure.
//
// An operation is a generator that yields the bare calls and is given their codes, so that the same
// lines serve the calling thread and the calls that run elsewhere.
'use strict';
const checks = require('./checks');
const {CODES, failure, ownMessage, say} = require('./codes');

// Room behind what is offered: for the NUL, and for a token library that writes too far.
const MARGIN = 64;
const LONGEST_MESSAGE = 4096;
const LONGEST_TEXT = Math.floor(0x7fffffff / 2) - 4096;
// Some hundred thousand requests: what exceeds this is no length of theirs.
const LONGEST_REQUESTS = 64 << 20;
const EVENTS = {1: 'arrival', 2: 'removal', 3: 'stopped'};

// ---- Inputs

function refuse(operation, reason) {
    throw failure(CODES.badArgument, operation, reason);
}

function text(operation, value, optional) {
    if (typeof value === 'string') {
        if (value.includes('\0')) refuse(operation, say('NulByte'));
        if (value.length > LONGEST_TEXT / 4 && Buffer.byteLength(value) > LONGEST_TEXT) {
            refuse(operation, say('TextTooLong'));
        }
        return value;
    }
    if (optional && (value === null || value === undefined)) return null;
    throw new TypeError(`${operation}: a text is expected`);
}

function number(operation, value, least, most) {
    if (typeof value !== 'number' || !Number.isInteger(value)) {
        throw new TypeError(`${operation}: an integer is expected`);
    }
    if (value < least || value > most) refuse(operation, say('NumberRange', value));
    return value;
}

// A text or bytes are handed on as a copy that may be written to, a Uint8Array itself.
function pointer(operation, value) {
    if (value === null || value === undefined) return null;
    if (value instanceof Uint8Array) return value.length ? value : Buffer.alloc(1);
    return Buffer.from(text(operation, value) + '\0');
}

const INPUTS = {
    text,
    pointer,
    int32: (operation, value) => number(operation, value, -0x80000000, 0x7fffffff),
    uint32: (operation, value) => number(operation, value, 0, 0xffffffff),
};

/** The arguments as they are handed on. */
function prepare(name, facts, values) {
    const made = new Array(facts.inputs.length);
    for (let at = 0; at < made.length; ++at) {
        made[at] = INPUTS[facts.inputs[at]](name, values[at], facts.optional[at]);
    }
    if (facts.check) {
        const reason = checks[facts.check[1]](made[facts.check[0]]);
        if (reason) refuse(name, reason);
    }
    return made;
}

// ---- Failures

/** In the turn of the operation: the message is a call too. The buffer is far larger than what a probe
 * tells, so that the call does not fail and store a code of its own. */
function* describe(library, name, code) {
    let message = ownMessage(code);
    if (!message) {
        const buffer = Buffer.alloc(LONGEST_MESSAGE + MARGIN);
        const length = Int32Array.of(LONGEST_MESSAGE);
        const failed = yield [library.functions.GetErrorMsg, code, buffer, length];
        message = (!failed && library.decode(upToNul(buffer))) || say('NoText');
    }
    return failure(code, name, message);
}

function falseLength(name, length, bound) {
    const sentence = length === 0 ? 'FalseLengthOfSome' : 'FalseLength';
    return failure(CODES.bufferTooSmall, name, say(sentence, length >>> 0, bound));
}

// ---- Outputs

function upToNul(buffer) {
    const end = buffer.indexOf(0);
    return end < 0 ? buffer : buffer.subarray(0, end);
}

// The text ends at its NUL. One character more than the bound is the NUL's place.
function cut(name, buffer, bound) {
    if (buffer.subarray(bound).some((byte) => byte !== 0)) {
        throw failure(CODES.bufferTooSmall, name, say('Overrun', bound));
    }
    return upToNul(buffer);
}

// ---- Ways to call

function* run(library, name, facts, values) {
    const code = yield [library.functions[name], ...values];
    if (code) throw yield* describe(library, name, code);
}

function* fetch(library, name, values, bound) {
    const buffer = Buffer.alloc(bound + MARGIN);
    const length = Uint32Array.of(bound);
    const code = yield [library.functions[name], ...values, buffer, length];
    if (code === CODES.bufferTooSmall) throw falseLength(name, length[0], bound);
    if (code) throw yield* describe(library, name, code);
    return [cut(name, buffer, bound), length[0]];
}

function* bounded(library, name, facts, values) {
    return library.decode((yield* fetch(library, name, values, facts.capacity))[0]);
}

function* record(library, name, facts, values) {
    const bound = facts.capacity;
    const buffer = Buffer.alloc(bound + MARGIN);
    const length = Uint32Array.of(bound);
    const code = yield [library.functions[name], ...values, buffer, length];
    if (code) throw yield* describe(library, name, code);
    if (length[0] > bound) throw falseLength(name, length[0], bound);
    cut(name, buffer, bound);
    return Buffer.from(buffer.subarray(0, length[0]));
}

function* probe(library, name, values, most, least) {
    const length = Uint32Array.of(0);
    const code = yield [library.functions[name], ...values, null, length];
    if (code) throw yield* describe(library, name, code);
    if (length[0] > most) throw falseLength(name, length[0], most);
    return yield* fetch(library, name, values, Math.max(length[0], least));
}

function* probed(library, name, facts, values) {
    const most = 2 * (Buffer.byteLength(values[facts.of]) + 4096);
    const [found, reported] = yield* probe(library, name, values, most, 0);
    // A token library may or may not count the NUL.
    if (facts.whole && reported > found.length + 1) {
        throw failure(CODES.unsupported, name, say('PlainCut', reported, found.length));
    }
    return library.decode(found);
}

// The library's own answer leaves a list of one text out.
function* batch(library, name, facts, values) {
    const [data, list] = [values[4], values[9]];
    const listed = list === null ? 0 : list.split('||').length * (Buffer.byteLength(list) + 2048);
    const room = 2 * ((data === null ? 0 : Buffer.byteLength(data) + 2048) + listed);
    if (room > 0x7fffffff) refuse(name, say('ListTooLong'));
    return library.decode((yield* probe(library, name, values, room, room))[0]);
}

// A probe makes requests, a second call with the same arguments fetches them. Whether that call wrote
// to the buffer tells success: its code can be one of another thread's.
function* kept(library, name, facts, values) {
    const length = Int32Array.of(0);
    let code = yield [library.functions[name], ...values, null, length];
    if (code) throw yield* describe(library, name, code);
    const bound = length[0];
    if (bound < 1 || bound > LONGEST_REQUESTS) throw falseLength(name, bound, LONGEST_REQUESTS);
    const buffer = Buffer.alloc(bound + MARGIN);
    buffer[0] = 1;
    code = yield [library.functions[name], ...values, buffer, length];
    if (buffer[0] !== 1) return library.decode(cut(name, buffer, bound));
    if (code) throw yield* describe(library, name, code);
    throw falseLength(name, length[0], bound);
}

function* event(library, name) {
    const kind = Uint32Array.of(0);
    const mediaId = Buffer.alloc(MARGIN);  // 17 bytes are used
    const code = yield [library.functions[name], kind, mediaId, Uint32Array.of(0)];
    // A wait that could not begin writes no kind; an arrived key that cannot be read does.
    if (code && !kind[0]) throw yield* describe(library, name, code);
    return {kind: EVENTS[kind[0]] || 'other', mediaId: upToNul(mediaId).toString(), code};
}

function* lastCode(library, name) {
    const code = Uint32Array.of(0);
    yield [library.functions[name], code];
    return code[0] | 0;
}

function* finalize(library, name) {
    yield [library.functions[name]];
}

module.exports = {
    prepare,
    ways: {batch, bounded, event, kept, probed, record, run, GetLastErrCode: lastCode,
        Finalize: finalize},
};
