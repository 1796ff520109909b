// A USB security key with SM2 keys, through the library kesta_unified_zrkukey.
//
//     const {Library} = require('kesta-ukey');
//     const key = await Library.load().presentKey();
//     await key.verifyPin();
//     const signature = await key.sign('pay 12.50', 'Pay 12.50?');
//
// Library has the library's functions under their names, Key what one key does. docs/node.md tells more.
'use strict';
const {Codes, KestaError, codeText, speak} = require('./codes');
const {Key} = require('./key');
const {Library} = require('./library');
const {
    CertType, HashForm, HashType, KeyType, bundle, joinList, requestInfo, splitList,
} = require('./texts');

/** The key with this serial number. */
Library.prototype.key = function key(serial) {
    return new Key(this, serial);
};

/** The key that is present. */
Library.prototype.presentKey = async function presentKey(options) {
    return this.key(await this.getPrintNumber(options));
};

/** Keys that come and go, from now on: `for await (const event of events())`. */
function events(library = Library.load(), options = undefined) {
    return library.events(options);
}

// Written out, so that `import {Library} from 'kesta-ukey'` finds the names.
module.exports = {
    CertType, Codes, HashForm, HashType, KestaError, Key, KeyType, Library, bundle, codeText, events,
    joinList, requestInfo, speak, splitList,
};
