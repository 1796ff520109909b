// What a code means, and in which language the package says so.
'use strict';
const fs = require('fs');
const tables = require('./tables.json');

const SYSTEM_FILE = '/etc/kesta/codes.json';
const CODES = {ok: 0, notBound: -101, unsupported: -300, badArgument: -401, bufferTooSmall: -404};

let language = 'en';

/** The language of the package's own sentences: 'en' or 'zh'. */
function speak(wanted) {
    if (wanted !== 'en' && wanted !== 'zh') throw new RangeError(`no sentences in ${wanted}`);
    language = wanted;
}

/** One of the package's own sentences. */
function say(sentence, ...words) {
    return tables.sentences[sentence][language].replace(/\{(\d)\}/g, (_, at) => words[at]);
}

/** The sentence for a code of the library's; nothing for any other code. */
function ownMessage(code) {
    const known = tables.library[code];
    return known && known[language];
}

/** The library's codes are known in decimal, the token library's in hexadecimal. */
function codeText(code) {
    if (code <= 0 && code > -1000) return String(code);
    return '0x' + (code >>> 0).toString(16).toUpperCase().padStart(8, '0');
}

/** A failure: its code, its kind whatever the token library's numbers are, the name of the library's
 * function or "Load", and a sentence. */
class KestaError extends Error {
    constructor(code, kind, operation, message) {
        super(message);
        this.name = 'KestaError';
        this.code = code;
        this.kind = kind;
        this.operation = operation;
    }

    toString() {
        return `${this.operation}: ${this.message} (${codeText(this.code)})`;
    }
}

function numberOf(code) {
    let value = code;
    if (typeof code === 'string') {
        const digits = /^(-?)(0x[0-9a-f]+|\d+)$/i.exec(code.trim());
        value = digits ? Number(digits[2]) * (digits[1] ? -1 : 1) : NaN;
    }
    if (!Number.isInteger(value) || value < -0x80000000 || value > 0xffffffff) return undefined;
    return value | 0;
}

function holds(object, ...fields) {
    return object !== null && typeof object === 'object' && !Array.isArray(object) &&
        Object.keys(object).sort().join() === fields.sort().join();
}

function rowOf(row) {
    if (Array.isArray(row)) return row;
    if (holds(row, 'code', 'kind')) return [numberOf(row.code), numberOf(row.code), row.kind];
    if (holds(row, 'first', 'last', 'kind')) return [numberOf(row.first), numberOf(row.last), row.kind];
    return [];
}

/** The table that tells the kind of a code. docs/codes.md describes a maker's file. */
class Codes {
    static #inUse;

    /** rows: first and last code with the kind of all between; a later row goes first. */
    constructor(rows, pinRecord) {
        this.rows = rows;
        this.pinRecord = pinRecord;
    }

    /** The software key's table. */
    static softkey() {
        return Codes.#parse(tables.softkey, '');
    }

    /** A maker's file. Throws, with a reason, for what is no such file. */
    static read(file) {
        return Codes.#parse(JSON.parse(fs.readFileSync(file, 'utf8')), `${file}: `);
    }

    /** The maker's where /etc/kesta/codes.json holds one, else the software key's. */
    static inUse() {
        Codes.#inUse ||= fs.existsSync(SYSTEM_FILE) ? Codes.read(SYSTEM_FILE) : Codes.softkey();
        return Codes.#inUse;
    }

    /** Puts this table in the place of the one in use. */
    use() {
        Codes.#inUse = this;
    }

    /** The kind of any code. */
    kindOf(code) {
        const known = tables.library[code];
        if (known) return known.kind;
        for (let at = this.rows.length - 1; at >= 0; --at) {
            const [first, last, kind] = this.rows[at];
            if (code >= first && code <= last) return kind;
        }
        return 'unknown';
    }

    /** The numbers of a PIN record; undefined where they are not known to stand there. */
    tries(record) {
        const layout = this.pinRecord;
        if (!layout || record.length !== layout.length) return undefined;
        const left = record[layout.triesLeft];
        const most = record[layout.triesMost];
        const locked = record[layout.locked];
        const likely = locked <= 1 && most > 0 && left <= most && (locked === 1) === (left === 0);
        return likely ? {left, most, locked: locked === 1} : undefined;
    }

    static #parse(data, where) {
        const refuse = (field) => {
            throw new RangeError(where + say('CodesField', JSON.stringify(field)));
        };
        if (!holds(data, 'codes') && !holds(data, 'codes', 'pinRecord') && !holds(data, 'pinRecord')) {
            refuse(data);
        }
        if (data.codes !== undefined && !Array.isArray(data.codes)) refuse(data.codes);
        const rows = (data.codes || []).map((row) => {
            const [first, last, kind] = rowOf(row);
            if (first === undefined || !(first <= last) || !(kind in tables.kinds)) refuse(row);
            return [first, last, kind];
        });
        const record = data.pinRecord;
        if (record !== undefined && !(holds(record, 'length', 'triesLeft', 'triesMost', 'locked') &&
            Object.values(record).every((value) => Number.isInteger(value) && value >= 0))) {
            refuse(record);
        }
        return new Codes(rows, record);
    }
}

/** The error of a code, of its kind unless that is known better. */
function failure(code, operation, message, kind = Codes.inUse().kindOf(code)) {
    return new KestaError(code, kind, operation, message);
}

module.exports = {
    CODES, Codes, KestaError, codeText, failure, ownMessage, say, speak, limits: tables.limits,
};
