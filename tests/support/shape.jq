# Says where a JSON value departs from $shape, one line each; nothing where it does not.
#
# A shape is JSON too: {"name": SHAPE, "optional?": SHAPE}, [SHAPE] for an array of any length of such
# values, and the words below. Every member that a shape does not name is a departure.
def departures($shape; $at):
    . as $value
    | if ($shape | type) == "object" then
        if type != "object" then "\($at) is no object"
        else
            ($shape | to_entries[] | (.key | rtrimstr("?")) as $name | .value as $of
                | if $value | has($name) then $value[$name] | departures($of; "\($at).\($name)")
                  elif .key | endswith("?") then empty
                  else "\($at) has no member \($name)" end),
            (keys_unsorted[] | select(in($shape) or (. + "?" | in($shape)) | not)
                | "\($at) has a member too much: \(.)")
        end
      elif ($shape | type) == "array" then
        if type != "array" then "\($at) is no array"
        else range(length) as $i | .[$i] | departures($shape[0]; "\($at)[\($i)]") end
      else
        { any: true,
          string: (type == "string"), text: (type == "string" and . != ""),
          number: (type == "number"), boolean: (type == "boolean"),
          "true": (. == true), "false": (. == false)
        }[$shape]
        | if . == null then error("no shape is called \($shape)")
          elif . then empty
          else "\($at) is not \($shape): \($value | tojson)" end
      end;

# Read with --slurp: whatever does not stand alone is no answer.
if length != 1 then "\(length) JSON values instead of one" else .[0] | departures($shape; "$") end
