// What the tests share: the library with a stand-in for everything behind its interface, and the
// software key.
'use strict';
const assert = require('assert/strict');
const {execFileSync} = require('child_process');
const fs = require('fs');
const path = require('path');
const build = process.env.KESTA_BUILD;
const kesta = require(process.env.KESTA_NODE_PACKAGE);
const koffi = require(path.join(process.env.KESTA_NODE_PACKAGE, 'node_modules/koffi'));

const description = JSON.parse(fs.readFileSync(process.env.KESTA_DESCRIPTION, 'utf8'));
const operations = require(path.join(process.env.KESTA_NODE_PACKAGE, 'lib/operations.json'));

/** A library with all functions and no key behind them, and how it is steered. */
class StandIn {
    constructor() {
        const file = path.join(build, 'lib/libface_stand_in.so');
        this.library = kesta.Library.load(file);
        const control = koffi.load(file);
        this.reset = control.func('void stand_in_reset()');
        this.number = control.func('bool stand_in_number(const char*, int64_t)');
        this.text = control.func('bool stand_in_text(const char*, const void*, size_t)');
        this.happen = control.func('void stand_in_event(uint32_t, const char*, int32_t)');
        this.inside = control.func('int32_t stand_in_inside()');
        this.mostInside = control.func('int32_t stand_in_most_inside()');
        this.joinedCalls = control.func('const char* stand_in_calls()');
    }

    tell(fields) {
        for (const [name, value] of Object.entries(fields)) {
            const bytes = typeof value === 'number' ? undefined : Buffer.from(value);
            assert.ok(bytes ? this.text(name, bytes, bytes.length) : this.number(name, value), name);
        }
    }

    get calls() {
        return this.joinedCalls().split('\n').slice(0, -1);
    }
}

const standIn = new StandIn();

/** Each test begins with the stand-in and the tables as they are at first. */
function refresh() {
    standIn.reset();
    kesta.Codes.softkey().use();
    kesta.speak('en');
}

const pause = (millis) => new Promise((resolve) => setTimeout(resolve, millis));

/** Returns as soon as it holds; a failure is a long wait. */
async function eventually(condition) {
    for (const end = Date.now() + 60000; !condition();) {
        assert.ok(Date.now() < end, 'it never came so');
        await pause(2);
    }
}

/** The software key's command. */
function softkey(...words) {
    const input = typeof words[words.length - 1] === 'object' ? JSON.stringify(words.pop()) : '';
    return execFileSync(path.join(build, 'bin/softkey'), words, {input, encoding: 'utf8'});
}

/** A certificate authority in a folder. */
function authority(folder) {
    const ask = (command, ...words) => execFileSync(
        process.env.KESTA_AUTHORITY, [command, folder, ...words],
        {env: {...process.env, KESTA_SOFTKEY: path.join(build, 'bin/softkey')}, encoding: 'utf8',
            stdio: ['ignore', 'pipe', 'ignore']}).trim();
    ask('new');
    return {
        issue: (request) => ask('issue', request),
        escrow: (request) => ask('escrow', request).split('\n'),
        encrypt: (certificate, text) => ask('encrypt', certificate, text),
        verifies: (certificate, text, signature) => {
            try {
                ask('verify', certificate, text, signature);
                return true;
            } catch (error) {
                return false;
            }
        },
    };
}

/** Arguments that only the right width and sign hand on as they are, and the record of them. */
function extremes(entry) {
    const values = [];
    for (const [place, parameter] of entry.parameters.entries()) {
        if (parameter.type === 'text') values.push(`a${place}`);
        if (parameter.type === 'pointer') values.push(Buffer.from('bytes'));
        if (parameter.type === 'number') values.push(parameter.signed ? -0x80000000 : 0xffffffff);
    }
    return {values, words: values.map((value) => Buffer.isBuffer(value) ? 'pointer' : String(value))};
}

/** The failure that a promise rejects with. */
async function failureOf(promise) {
    try {
        await promise;
    } catch (error) {
        assert.ok(error instanceof kesta.KestaError, `${error.stack}`);
        return error;
    }
    return assert.fail('it did not fail');
}

module.exports = {
    ...kesta, authority, build, description, eventually, extremes, failureOf, kesta, operations, pause,
    refresh, softkey, standIn,
};
